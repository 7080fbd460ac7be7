#ifndef NCDS_PROJECT_DETAIL_COMPOUNDDATASETSSTREAM_H
#define NCDS_PROJECT_DETAIL_COMPOUNDDATASETSSTREAM_H

// The compound datasets of a project as one stream, so that the project file stores them all
// together ("compounds"). Magic "NCCOMPOUNDS", version 1 (only 1 is read), then a directory of
// one entry: tag 0 a four-byte count and each compound's "NCCOMPDS" stream, in number order.
// A damaged stream, or a number that repeats, answers false and leaves the collection as it
// was. Header-only, so that the fuzz target reaches it too.

#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <utility>

#include "ncds/dataset/CompoundDataset.h"
#include "ncds/project/detail/KeyedStream.h"

namespace ncds::detail {

class CompoundDatasetsStream final : public KeyedStream<int, CompoundDataset> {
 public:
  // `compounds` to be written, or (empty) compounds of `project` to be read.
  explicit CompoundDatasetsStream(boost::shared_ptr<NCProjectBase> project, Map compounds = {})
      : KeyedStream("NCCOMPOUNDS", kLeastBytes, std::move(compounds)),
        mProject(std::move(project)) {}

  const Map& GetCompounds() const { return mItems; }
  Map TakeCompounds() { return std::move(mItems); }

 protected:
  bool WriteItem(std::ostream& os, const int&, const CompoundDataset& compound) const override {
    return static_cast<bool>(os << compound);
  }

  std::pair<int, boost::shared_ptr<CompoundDataset const>> ReadItem(
      std::istream& is) const override {
    auto compound = boost::make_shared<CompoundDataset>(mProject);
    if (!(is >> *compound)) ThrowStreamReadError();
    return {compound->GetNumber(), std::move(compound)};
  }

 private:
  // The least a compound's stream takes: its magic and version.
  static constexpr std::uint64_t kLeastBytes = 1 + 8 + 2;

  boost::shared_ptr<NCProjectBase> mProject;
};

}  // namespace ncds::detail

#endif  // NCDS_PROJECT_DETAIL_COMPOUNDDATASETSSTREAM_H
