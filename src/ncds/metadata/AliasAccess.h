#ifndef NCDS_METADATA_ALIASACCESS_H
#define NCDS_METADATA_ALIASACCESS_H

// A read-only view of the ID series (aliases) of a variable or observation container: their
// names as users see them, and the IDs of any record in any series. It refers to the container
// without owning it (the container must outlive the view) and takes the container's list of
// series in use once, when it is made. Series are numbered from 1; a series out of range gives
// an empty text, -99 or false. Const, so as safe across threads as the container it reads.

#include <string>
#include <vector>

#include "ncds/foundations/NCDataVector.h"
#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/ncds_export.h"

class VarObs;
class VarObsInfo;

class NCDS_EXPORT AliasAccess {
 public:
  explicit AliasAccess(const VarObs& container);

  // The number of series of the container.
  int SizeAliases() const;
  // The label of `series`: "Primary ID" for series 1, the stored label for the others, and
  // "Sec. ID:<series>" for one whose label is empty (all translated).
  std::string GetRawAliasName(int series) const;
  // The label with what the series is: "Var ID (Primary)" ("Obs ID (Primary)") for series 1,
  // "Var ID (<series>): <label>" ("Obs ID (<series>): <label>") for the others.
  std::string GetAliasNameWithDescription(int series) const;
  // The ID of `info` in `series`.
  const std::string& GetAlias(int series, const VarObsInfo& info) const;
  // That ID as a number, -99 when it is not one.
  float GetAliasAsFloat(int series, const VarObsInfo& info) const;
  // The ID of `info` in `series`, or its primary ID when that one is empty.
  const std::string& GetPreferredAlias(int series, const VarObsInfo& info) const;
  bool IsAliasNumeral(int series) const;
  // As `VarObs::GetNumeralValues`.
  NCDataVector<float> GetNumeralValues(int series,
                                       const NCIntegralVector<unsigned long, 0>* uniqueIDs) const;
  // Whether the container holds variables (an `NCVariables`) rather than observations.
  bool IsVariable() const { return mIsVariable; }
  // The series in use, as the container listed them when the view was made.
  const std::vector<int>& GetUsedAliases() const { return mUsedAliases; }

 private:
  const VarObs* mContainer;
  std::vector<int> mUsedAliases;
  bool mIsVariable;
};

#endif  // NCDS_METADATA_ALIASACCESS_H
