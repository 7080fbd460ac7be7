#ifndef NCDS_METADATA_SELECTEDLABEL_H
#define NCDS_METADATA_SELECTEDLABEL_H

// Which ID series a container shows as the long and as the short label of its variables or
// observations, in the order chosen. A label is never empty: it falls back to series 1.
//
// Every change increases a process-wide version count and raises the process-wide signal
// `msSelectedlabelChange` with the changed object, so that views can tell cheaply whether any
// label changed since they last looked. `SetSelected` may be called from any thread for
// different objects: the count and the signal are serialised by one mutex, and the slots run
// on the caller's thread while it is held, so they must not call `SetSelected` themselves.
//
// Persistent: magic "SELECTED_LABLE", version 2; tag 0 the version count (reading it sets the
// process-wide count), tag 1 the long label, tag 2 the short label.

#include <boost/signals2/signal.hpp>
#include <cstdint>
#include <iosfwd>
#include <vector>

#include "ncds/foundations/NCIntegralVector.h"
#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamableData.h"
#include "ncds/ncds_export.h"

class NCDS_EXPORT SelectedLabel : public virtual VStreamBase {
 public:
  using Series = NCIntegralVector<int, -99>;

  // Raised after every change, with the changed object.
  static boost::signals2::signal<void(SelectedLabel*)> msSelectedlabelChange;

  // Both labels show series 1.
  SelectedLabel();
  SelectedLabel(const SelectedLabel& other);
  SelectedLabel& operator=(const SelectedLabel& other);
  ~SelectedLabel() override;

  // Toggles series `series[position - 1]` in the short (or long) label: a selected series is
  // removed, another appended. Nothing happens when `position` is outside 1..series.size().
  void SetSelected(int position, const std::vector<int>& series, bool shortLabel);
  // The selected series as 1-based positions in `series`, in the order selected; series not
  // in `series` are left out, and an empty result becomes position 1.
  Series GetSelectedLongLabel(const std::vector<int>& series) const;
  Series GetSelectedShortLabel(const std::vector<int>& series) const;
  // The selected series numbers themselves.
  const Series& GetLongLabelSeries() const { return mLong; }
  const Series& GetShortLabelSeries() const { return mShort; }

  // The number of changes made in this process (or the number last read from a stream).
  static std::uint32_t GetVersionCount();

  static std::int16_t GetVStreamVersionNumber() { return msVStreamData.GetVStreamVersionNumber(); }
  static std::int16_t GetMyVStreamVersionNumber() {
    return msVStreamData.GetMyVStreamVersionNumber();
  }

 protected:
  bool VStreamableStartWrite(std::ostream& os) const override;
  bool VStreamableStartRead(std::istream& is) override;
  void VStreamableReset() const override;

 private:
  bool VStreamableWrite(std::ostream& os) const;
  bool ReadStreamDirectory(std::istream& is);

  VStreamGuard mGuard;
  Series mLong;
  Series mShort;
  static const VStreamableData msVStreamData;
};

#endif  // NCDS_METADATA_SELECTEDLABEL_H
