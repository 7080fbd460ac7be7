#ifndef NCDS_DERIVED_LOCALCENTERINGDATA_H
#define NCDS_DERIVED_LOCALCENTERINGDATA_H

// A dataset's local centers: per variable, a center value for each group of observations named
// by up to two observation keys (typically a batch and a phase). A key (ID index, ID value)
// matches the observations whose identifier of series `index` (1-based) is the value; the
// empty key (-1, "") matches every observation. Keys with an index below 1 or an empty value
// are stored as the empty key.
//
// `Subtract` takes each variable's centers from its data, row by row: a row takes the value of
// the first first-level key that matches it and, under it, the first second-level key that
// matches; rows that follow with the same identifiers at those two series keep that value, so
// a run of one batch and phase is looked up once. Rows without a center get their default
// center (`DefaultCenterValues`) when the variable is keyed on the project's batch-identifier
// series, else 0. Missing cells (-99) stay missing. `GetSubtractionMatrix` gives the same
// values as a matrix, one column per variable that has any center other than 0. The
// `DefaultCenterValues` returned is the one given (a new empty one when none was).
//
// Persistent: magic "LCD", version 1 (only 1 is read); one directory entry, tag 1: the variable
// count, then per variable (ascending ID) its ID and first-key count, per first key its index,
// value and second-key count, per second key its index, value and center (counts and indexes
// four bytes, values binary strings, centers four-byte floats). A failed read answers false and
// leaves the store empty. A dataset keeps its store and writes it with itself. Copyable
// (deep); not synchronised.

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "ncds/derived/DefaultCenterValues.h"
#include "ncds/foundations/NCDataMatrix.h"
#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/metadata/VarObsInfoVector.h"
#include "ncds/ncds_export.h"

class NCProjectBase;
class NCVariables;
class ObservationInfo;

class NCDS_EXPORT LocalCenteringData : public VStreamBase {
 public:
  using Key = DefaultCenterValues::ObservationKey;
  using SecondKeys = std::map<Key, float>;
  using FirstKeys = std::map<Key, SecondKeys>;

  LocalCenteringData();
  LocalCenteringData(const LocalCenteringData& other);
  LocalCenteringData& operator=(const LocalCenteringData& other);
  ~LocalCenteringData() override;

  bool operator==(const LocalCenteringData& other) const { return mCenters == other.mCenters; }

  // Stores `value` for the variable under the two keys, replacing what was there.
  void AddInfo(float value, unsigned long varID, int index1, const char* value1, int index2,
               const char* value2);
  // The center under the two keys: -99 when the variable has none; the mean of all the
  // variable's centers when the first key is unknown; the mean under the first key when no
  // second key is given (index2 below 1); else the center under both, or -99.
  float GetInfo(unsigned long varID, int index1, const char* value1, int index2,
                const char* value2) const;
  // Takes over the centers of `other`, replacing those under the same keys.
  void Add(const LocalCenteringData& other);
  std::size_t SizeVars() const { return mCenters.size(); }
  // The variable IDs, ascending.
  NCIntegralVector<unsigned long, 0> GetVariableIDs() const;
  // The centers of one variable, or null.
  const FirstKeys* GetCenters(unsigned long varID) const;

  // Whether any of the variables has centers here, or a default center other than 0 for one
  // of the observations (by record, or by name compared with every default rule).
  bool HasLocalCenteringData(const std::list<unsigned long>& varIDs,
                             const VarObsInfoVector<ObservationInfo>& observations,
                             const DefaultCenterValues* defaults) const;
  bool HasLocalCenteringData(const NCIntegralVector<unsigned long, 0>& varIDs,
                             const std::vector<std::string>& observationNames,
                             const DefaultCenterValues* defaults) const;

  // Default centers derived from the stored ones (see `DefaultCenterValues::AddVar`): for a
  // group without a center of its own, the mean of its phase over the batches that have one.
  DefaultCenterValues GetDefaultCenters() const;

  // Drops the centers of the variables `variables` no longer holds.
  void PurgeUnUsedVars(const NCVariables& variables);
  // The variable ID series (2 and up) in which some variable with centers has an ID; cached
  // until the centers change. Throws `NCInternalError` for a variable `variables` lacks.
  std::vector<int> GetUsedVarAliases(const NCVariables& variables) const;
  // Every key value in use, numbered 0, 1, ... in byte order.
  std::map<std::string, int> GetIDNames() const;
  // A row per name of `names` (at its number) and a column per variable (ascending ID): the
  // mean of the centers whose first key has that value, else of those whose second key has
  // it, else -99. Throws `NCInternalError` for null `names` or numbers outside 0..size-1.
  NCDataMatrix<float> GetLocalCenteringDataAsMat(const std::map<std::string, int>* names) const;

  // The centers of each of `varIDs` for each of `observations`, as columns of `result` with
  // their variable IDs in `resultIDs` (see above). With no centers and no defaults the outputs
  // are left as they are.
  boost::shared_ptr<const DefaultCenterValues> GetSubtractionMatrix(
      NCDataMatrix<float>& result, NCIntegralVector<unsigned long, 0>& resultIDs,
      const VarObsInfoVector<ObservationInfo>& observations,
      const NCIntegralVector<unsigned long, 0>& varIDs, const NCProjectBase& project,
      boost::shared_ptr<const DefaultCenterValues> defaults) const;
  // Subtracts the centers from `data` (rows `observations`, columns `varIDs`) in place,
  // without building the matrix: each run of rows with one center is one loop.
  boost::shared_ptr<const DefaultCenterValues> Subtract(
      NCDataMatrix<float>& data, const VarObsInfoVector<ObservationInfo>& observations,
      const NCIntegralVector<unsigned long, 0>& varIDs, const NCProjectBase& project,
      boost::shared_ptr<const DefaultCenterValues> defaults) const;

  // Subtracts each column of `centers` (a subtraction matrix, its variable IDs `centerIDs`)
  // from the column of `data` with the same variable ID in `varIDs` (the first such), row by
  // row over the rows both have; missing cells (-99) stay missing, and columns of `centers`
  // whose ID `varIDs` lacks are skipped.
  static void SubtractMatrix(NCDataMatrix<float>& data,
                             const NCIntegralVector<unsigned long, 0>& varIDs,
                             const NCDataMatrix<float>& centers,
                             const NCIntegralVector<unsigned long, 0>& centerIDs);

  static std::int16_t GetVStreamVersionNumber() { return msVStreamData.GetVStreamVersionNumber(); }
  static std::int16_t GetMyVStreamVersionNumber() {
    return msVStreamData.GetMyVStreamVersionNumber();
  }

 protected:
  bool VStreamableStartWrite(std::ostream& os) const override;
  bool VStreamableStartRead(std::istream& is) override;
  void VStreamableReset() const override;

 private:
  bool ReadStreamDirectory(std::istream& is);

  // What subtracting needs, built on first use after a change: each variable's centers in key
  // order, and for variables with the same keys one of them to match rows against.
  struct Layout {
    std::map<std::uint32_t, std::vector<float>> values;
    std::map<std::uint32_t, std::uint32_t> keysOf;  // variable -> variable with its keys
  };
  const Layout& GetLayout() const;
  void Changed();

  std::map<std::uint32_t, FirstKeys> mCenters;
  mutable std::unique_ptr<Layout> mLayout;
  mutable std::set<int> mUsedAliases;
  mutable bool mAliasesKnown = false;
  VStreamGuard mGuard;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_DERIVED_LOCALCENTERINGDATA_H
