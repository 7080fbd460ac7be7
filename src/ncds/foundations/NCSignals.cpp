#include "ncds/foundations/NCSignals.h"

#include <atomic>
#include <boost/signals2/signal.hpp>
#include <utility>

namespace ncds::detail {
namespace {

// One signal and a flag that tells whether anything was ever connected to it: signals2 takes
// a mutex even to find out that it is empty, and datasets raise once per changed cell. The flag
// is constant-initialised and the signal built on first use, so no static initialisation order
// matters. `Id` keeps signals of the same signature apart.
template <class Signature, int Id>
class Channel {
 public:
  static boost::signals2::connection Connect(const boost::signals2::slot<Signature>& slot) {
    boost::signals2::connection connection = Signal().connect(slot);
    sEverConnected.store(true, std::memory_order_release);
    return connection;
  }

  template <class... Args>
  static void Raise(Args&&... args) {
    if (!sEverConnected.load(std::memory_order_acquire)) return;
    Signal()(std::forward<Args>(args)...);
  }

 private:
  static boost::signals2::signal<Signature>& Signal() {
    static boost::signals2::signal<Signature> signal;
    return signal;
  }
  static inline std::atomic<bool> sEverConnected{false};
};

using VarObsAdded = Channel<void(NCDataSet*), 0>;
using VarObsDeleted = Channel<void(NCDataSet*), 1>;
using ValueChanged = Channel<void(NCDataSet*, unsigned long, unsigned long), 2>;
using ValuesChanged = Channel<void(NCDataSet*), 3>;
using Merged = Channel<void(NCDataSet*, DatasetMergeInfo&), 4>;

}  // namespace
}  // namespace ncds::detail

namespace detail = ncds::detail;

boost::signals2::connection NCSignals::ConnectVarObsAdded(const DataSetSlot& slot) {
  return detail::VarObsAdded::Connect(slot);
}

boost::signals2::connection NCSignals::ConnectVarObsDeleted(const DataSetSlot& slot) {
  return detail::VarObsDeleted::Connect(slot);
}

boost::signals2::connection NCSignals::ConnectDataSetValueChanged(const ValueChangedSlot& slot) {
  return detail::ValueChanged::Connect(slot);
}

boost::signals2::connection NCSignals::ConnectDataSetValuesChanged(const DataSetSlot& slot) {
  return detail::ValuesChanged::Connect(slot);
}

boost::signals2::connection NCSignals::ConnectDatasetMerged(const MergedSlot& slot) {
  return detail::Merged::Connect(slot);
}

void NCSignals::RaiseVarObsAdded(NCDataSet* dataSet) { detail::VarObsAdded::Raise(dataSet); }

void NCSignals::RaiseVarObsDeleted(NCDataSet* dataSet) { detail::VarObsDeleted::Raise(dataSet); }

void NCSignals::RaiseDataSetValueChanged(NCDataSet* dataSet, unsigned long obsID,
                                         unsigned long varID) {
  detail::ValueChanged::Raise(dataSet, obsID, varID);
}

void NCSignals::RaiseDataSetValuesChanged(NCDataSet* dataSet) {
  detail::ValuesChanged::Raise(dataSet);
}

void NCSignals::RaiseDatasetMerged(NCDataSet* dataSet, DatasetMergeInfo& info) {
  detail::Merged::Raise(dataSet, info);
}
