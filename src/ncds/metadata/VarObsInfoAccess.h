#ifndef NCDS_METADATA_VAROBSINFOACCESS_H
#define NCDS_METADATA_VAROBSINFOACCESS_H

// What a variable or observation record may ask of the container that owns it: records call
// back through this interface when one of their IDs changes, so that the container can drop
// its lookup by user ID and keep its numeral flags right. Series numbers are 1-based.

#include <string>
#include <vector>

#include "ncds/ncds_export.h"

class NCDS_EXPORT VarObsInfoAccess {
 public:
  virtual ~VarObsInfoAccess();

  // Marks ID series `series` as holding numbers (or not).
  virtual void SetIDIsNumeral(int series, bool numeral) = 0;
  // Drops the lookup by user ID; the next lookup rebuilds it.
  virtual void ClearInfosByUserID() = 0;
  virtual void SetIsDirty(bool dirty) = 0;
  // The ID series in use, by number.
  virtual std::vector<int> GetAllUsedAliases() const = 0;
  // Replaces the labels of series 2 and up; `labels` holds one label per series, the first
  // (the primary series, whose label is fixed) ignored.
  virtual void Set_ID_Labels(const std::vector<std::string>* labels) = 0;
  virtual void ReservedAccessSlot();
  virtual bool IsIDNumeral(int series) const = 0;

 protected:
  VarObsInfoAccess() = default;
  VarObsInfoAccess(const VarObsInfoAccess&) = default;
  VarObsInfoAccess& operator=(const VarObsInfoAccess&) = default;
};

#endif  // NCDS_METADATA_VAROBSINFOACCESS_H
