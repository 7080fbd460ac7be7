#ifndef NCDS_PROJECT_DETAIL_AUXILIARYDATASTREAM_H
#define NCDS_PROJECT_DETAIL_AUXILIARYDATASTREAM_H

// The auxiliary data of a project as one stream, so that the project file stores it all
// together ("auxiliary"). Magic "NCAUXILIARY", version 1 (only 1 is read), then a directory of
// one entry: tag 0 a four-byte count and per item, in name order, its name (binary string) and
// its "AUXDATA" stream. A damaged stream, or a name that is empty or repeats, answers false and
// leaves the collection as it was. Header-only, so that the fuzz target reaches it too.

#include <boost/make_shared.hpp>
#include <string>
#include <utility>

#include "ncds/dataset/AuxiliaryData.h"
#include "ncds/project/detail/KeyedStream.h"

namespace ncds::detail {

class AuxiliaryDataStream final : public KeyedStream<std::string, AuxiliaryData> {
 public:
  // `data` to be written, or (empty) a collection to be read.
  explicit AuxiliaryDataStream(Map data = {})
      : KeyedStream("NCAUXILIARY", kLeastBytes, std::move(data)) {}

  const Map& GetData() const { return mItems; }
  Map TakeData() { return std::move(mItems); }

 protected:
  bool WriteItem(std::ostream& os, const std::string& name,
                 const AuxiliaryData& data) const override {
    return !name.empty() && WriteBinaryString(name, os) && (os << data);
  }

  std::pair<std::string, boost::shared_ptr<AuxiliaryData const>> ReadItem(
      std::istream& is) const override {
    std::string name;
    ReadBinaryString(name, is);
    auto data = boost::make_shared<AuxiliaryData>();
    if (name.empty() || !(is >> *data)) ThrowStreamReadError();
    return {std::move(name), std::move(data)};
  }

 private:
  // The least an item takes: a name of one byte with its length, and the data's magic and
  // version.
  static constexpr std::uint64_t kLeastBytes = 4 + 1 + 1 + 7 + 2;
};

}  // namespace ncds::detail

#endif  // NCDS_PROJECT_DETAIL_AUXILIARYDATASTREAM_H
