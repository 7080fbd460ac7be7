#ifndef NCDS_PROJECT_DETAIL_KEYEDSTREAM_H
#define NCDS_PROJECT_DETAIL_KEYEDSTREAM_H

// A map of shared objects as one stream, for the collections a project file keeps under one
// name: a magic and version 1 (only 1 is read), then a directory of one entry, tag 0: a
// four-byte count and the items in key order, each as the derived class writes it. A damaged
// stream, an item the derived class refuses, or a key that repeats answers false and leaves
// the map as it was. Header-only, so that the fuzz target reaches it too.

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <istream>
#include <map>
#include <ostream>
#include <utility>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"
#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/foundations/VStreamBase.h"
#include "ncds/foundations/VStreamLight.h"

namespace ncds::detail {

template <class Key, class Value>
class KeyedStream : public VStreamBase {
 public:
  using Map = std::map<Key, boost::shared_ptr<Value const>>;

 protected:
  // `leastItemBytes`: the fewest bytes an item takes, which bounds the count a stream can hold.
  KeyedStream(const char* magic, std::uint64_t leastItemBytes, Map items)
      : mItems(std::move(items)), mMagic(magic), mLeastItemBytes(leastItemBytes) {}

  // Writes one item; false when it cannot be written.
  virtual bool WriteItem(std::ostream& os, const Key& key, const Value& value) const = 0;
  // Reads one item; throws `VxStreamError` when it does not read.
  virtual std::pair<Key, boost::shared_ptr<Value const>> ReadItem(std::istream& is) const = 0;

  bool VStreamableStartWrite(std::ostream& os) const override {
    if (!mGuard.Enter()) return true;
    if (!VStreamLight::WriteMagicStringAndVersionNumber(os, kVersion, mMagic)) return false;
    OutputStreamDirectory directory(os, 1);
    std::ostream& entry = directory.GetOutput(kTagItems);
    const auto count = static_cast<std::uint32_t>(mItems.size());
    bool ok = WriteFourBytes(&count, 1, entry);
    for (const auto& [key, value] : mItems) ok = ok && value && WriteItem(entry, key, *value);
    return directory.Close() && ok && static_cast<bool>(os);
  }

  bool VStreamableStartRead(std::istream& is) override {
    if (!mGuard.Enter()) return true;
    std::uint16_t version = 0;
    if (!VStreamLight::CheckMagicStringAndVersionNumber(is, version, mMagic) ||
        version != kVersion) {
      return false;
    }
    InputStreamDirectory directory(is);
    Map items;
    bool ok = directory.IsValid();
    try {
      if (ok) {
        std::istream& entry = GetRequiredInput(directory, kTagItems);
        std::uint32_t count = 0;
        ReadFourBytes(&count, 1, entry);
        RequireStreamBytes(entry, std::uint64_t{count} * mLeastItemBytes);
        for (std::uint32_t i = 0; i < count; ++i) {
          if (!items.insert(ReadItem(entry)).second) ThrowStreamReadError();
        }
      }
    } catch (const VxStreamError&) {
      ok = false;
    }
    directory.Close();
    if (!ok || !is) return false;
    mItems = std::move(items);
    return true;
  }

  void VStreamableReset() const override { mGuard.Reset(); }

  Map mItems;

 private:
  static constexpr std::uint16_t kVersion = 1;
  static constexpr std::uint16_t kTagItems = 0;

  const char* mMagic;
  std::uint64_t mLeastItemBytes;
  VStreamGuard mGuard;
};

}  // namespace ncds::detail

#endif  // NCDS_PROJECT_DETAIL_KEYEDSTREAM_H
