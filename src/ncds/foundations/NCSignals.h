#ifndef NCDS_FOUNDATIONS_NCSIGNALS_H
#define NCDS_FOUNDATIONS_NCSIGNALS_H

// Change notifications about datasets. The library's datasets raise them after a change has
// been made; the application subscribes with the `Connect...` functions and keeps the returned
// connection (disconnect it, or hold a scoped_connection, before the slot's objects go).
//
// The signals are process-wide. Slots run synchronously on the thread that raised, inside the
// dataset operation, so they must not change that dataset; an exception thrown by a slot
// reaches the operation that raised. Raising while nothing was ever connected costs one atomic
// load. Only the library's datasets call the `Raise...` functions.

#include <boost/signals2/connection.hpp>
#include <boost/signals2/slot.hpp>

#include "ncds/ncds_export.h"

class NCDataSet;
struct DatasetMergeInfo;

class NCDS_EXPORT NCSignals {
 public:
  using DataSetSlot = boost::signals2::slot<void(NCDataSet*)>;
  using ValueChangedSlot =
      boost::signals2::slot<void(NCDataSet*, unsigned long obsID, unsigned long varID)>;
  using MergedSlot = boost::signals2::slot<void(NCDataSet*, DatasetMergeInfo&)>;

  NCSignals() = delete;

  // Variables or observations were added to the dataset.
  static boost::signals2::connection ConnectVarObsAdded(const DataSetSlot& slot);
  // Variables or observations were deleted from the dataset.
  static boost::signals2::connection ConnectVarObsDeleted(const DataSetSlot& slot);
  // One value of the dataset changed: the cell of observation `obsID`, variable `varID`
  // (unique IDs).
  static boost::signals2::connection ConnectDataSetValueChanged(const ValueChangedSlot& slot);
  // Many values of the dataset changed at once.
  static boost::signals2::connection ConnectDataSetValuesChanged(const DataSetSlot& slot);
  // Another dataset was merged into the dataset.
  static boost::signals2::connection ConnectDatasetMerged(const MergedSlot& slot);

  static void RaiseVarObsAdded(NCDataSet* dataSet);
  static void RaiseVarObsDeleted(NCDataSet* dataSet);
  static void RaiseDataSetValueChanged(NCDataSet* dataSet, unsigned long obsID,
                                       unsigned long varID);
  static void RaiseDataSetValuesChanged(NCDataSet* dataSet);
  static void RaiseDatasetMerged(NCDataSet* dataSet, DatasetMergeInfo& info);
};

#endif  // NCDS_FOUNDATIONS_NCSIGNALS_H
