#include "ncds/project/NCProject.h"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cstring>
#include <istream>
#include <iterator>
#include <ostream>
#include <streambuf>
#include <utility>

#include "ncds/batch/BatchImportSettings.h"
#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCDataSetInfo.h"
#include "ncds/foundations/Exception.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/UniqueIDs.h"

namespace ncds::detail {
namespace {

// Collects a stream in a string and hands the string over whole. It can seek, so that the
// large entries of a directory (a dataset's matrix) stream through without a second copy.
class StringSink final : public std::streambuf {
 public:
  // Makes room for `bytes` bytes up front, so that a stream of about that size is not moved.
  void Reserve(std::size_t bytes) {
    if (bytes > mBytes.size()) Resize(bytes);
  }

  // The bytes written (up to the furthest position reached).
  std::string Take() {
    mBytes.resize(static_cast<std::size_t>(High()));
    setp(nullptr, nullptr);
    mHigh = 0;
    return std::move(mBytes);
  }

 protected:
  int_type overflow(int_type c) override {
    if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
    const char byte = traits_type::to_char_type(c);
    return xsputn(&byte, 1) == 1 ? c : traits_type::eof();
  }

  std::streamsize xsputn(const char* s, std::streamsize n) override {
    if (n <= 0) return 0;
    if (epptr() - pptr() < n)
      Resize(std::max<std::size_t>(
          {std::size_t{4096}, 2 * mBytes.size(), static_cast<std::size_t>(Position() + n)}));
    std::memcpy(pptr(), s, static_cast<std::size_t>(n));
    setp(pptr() + n, epptr());
    return n;
  }

  pos_type seekoff(off_type off, std::ios_base::seekdir dir,
                   std::ios_base::openmode which) override {
    if (!(which & std::ios_base::out)) return pos_type(off_type(-1));
    const std::streamoff high = High();
    mHigh = high;
    const std::streamoff base = dir == std::ios_base::beg   ? 0
                                : dir == std::ios_base::cur ? Position()
                                                            : high;
    const std::streamoff target = base + off;
    if (target < 0 || target > high) return pos_type(off_type(-1));
    setp(mBytes.data() + target, mBytes.data() + mBytes.size());
    return pos_type(target);
  }

  pos_type seekpos(pos_type pos, std::ios_base::openmode which) override {
    return seekoff(off_type(pos), std::ios_base::beg, which);
  }

 private:
  std::streamoff Position() const { return pptr() ? pptr() - mBytes.data() : 0; }
  std::streamoff High() const { return std::max(mHigh, Position()); }

  void Resize(std::size_t bytes) {
    const std::streamoff position = Position();
    mHigh = High();
    mBytes.resize(bytes);
    setp(mBytes.data() + position, mBytes.data() + mBytes.size());
  }

  std::string mBytes;
  std::streamoff mHigh = 0;
};

// Reads a string in place, seekable, without copying it.
class StringSource final : public std::streambuf {
 public:
  explicit StringSource(const std::string& bytes) {
    // Nothing writes through a get area.
    char* data = const_cast<char*>(bytes.data());
    setg(data, data, data + bytes.size());
  }

 protected:
  pos_type seekoff(off_type off, std::ios_base::seekdir dir,
                   std::ios_base::openmode which) override {
    if (!(which & std::ios_base::in)) return pos_type(off_type(-1));
    const std::streamoff size = egptr() - eback();
    const std::streamoff base = dir == std::ios_base::beg   ? 0
                                : dir == std::ios_base::cur ? gptr() - eback()
                                                            : size;
    const std::streamoff target = base + off;
    if (target < 0 || target > size) return pos_type(off_type(-1));
    setg(eback(), eback() + target, egptr());
    return pos_type(target);
  }

  pos_type seekpos(pos_type pos, std::ios_base::openmode which) override {
    return seekoff(off_type(pos), std::ios_base::beg, which);
  }
};

// About the size of a dataset's stream: its cells and IDs, and room for the rest.
std::size_t ExpectedStreamSize(const NCDataSet& dataSet) {
  const NCDataMatrix<float>& data = dataSet.GetMatrix();
  return data.SizeRows() * data.SizeColumns() * sizeof(float) +
         (data.SizeRows() + data.SizeColumns()) * 8 + 4096;
}

}  // namespace
}  // namespace ncds::detail

NCProject::NCProject()
    : mVariables(std::make_unique<NCVariables>()),
      mObservations(std::make_unique<NCObservations>()),
      mSettings(std::make_unique<BatchImportSettings>()) {}

NCProject::~NCProject() = default;

boost::shared_ptr<NCProject> NCProject::Create() {
  return boost::shared_ptr<NCProject>(new NCProject());
}

bool NCProject::IsTaken(unsigned long id) const {
  return id == 0 || id == NCUniqueIDs::kNone || id == NCUniqueIDs::kConstant ||
         (*mVariables)[id] != nullptr || (*mObservations)[id] != nullptr;
}

unsigned long NCProject::CreateUniqueID() {
  // IDs are 32-bit; after the last one the search wraps round once to fill gaps left by
  // deleted records, and only a project holding every ID runs out.
  constexpr unsigned long kLast = 0xFFFFFFFFUL;
  if (mLastUniqueID == 0) {
    // Go on after the highest ordinary ID of records the project holds already (read from a
    // stream, say), so that new IDs come in one step.
    for (const VarObs* records : {static_cast<const VarObs*>(mVariables.get()),
                                  static_cast<const VarObs*>(mObservations.get())}) {
      const auto below = records->lower_bound(NCUniqueIDs::kNone);
      if (below != records->begin())
        mLastUniqueID = std::max(mLastUniqueID, std::prev(below)->first);
    }
  }
  for (unsigned long tried = 0; tried < kLast; ++tried) {
    mLastUniqueID = mLastUniqueID >= kLast ? 1 : mLastUniqueID + 1;
    if (!IsTaken(mLastUniqueID)) return mLastUniqueID;
  }
  throw NCInternalError("the project has no unique ID left");
}

bool NCProject::CanChangeVariables(int dataSetNumber,
                                   const NCIntegralVector<unsigned long, 0>& variableIDs) {
  return !mChangeCheck || mChangeCheck(dataSetNumber, variableIDs);
}

void NCProject::SetBatchImportSettings(const BatchImportSettings& settings) {
  if (&settings != mSettings.get()) *mSettings = settings;
}

bool NCProject::SaveDataSet(boost::shared_ptr<NCDataSet const> dataSet) {
  if (!dataSet) return false;
  auto info = boost::make_shared<NCDataSetInfo>(dataSet);
  std::string stream;
  if (!WriteDataSetStream(*dataSet, *info, stream)) return false;
  StoredDataSet& stored = mDataSets[info->GetNumber()];
  stored.stream = std::move(stream);
  stored.info = std::move(info);
  stored.loaded = std::move(dataSet);
  return true;
}

bool NCProject::WriteDataSetStream(const NCDataSet& dataSet, const NCDataSetInfo&,
                                   std::string& kept) {
  ncds::detail::StringSink sink;
  sink.Reserve(ncds::detail::ExpectedStreamSize(dataSet));
  std::ostream os(&sink);
  if (!(os << dataSet)) return false;
  kept = sink.Take();
  return true;
}

bool NCProject::ReadDataSetStream(int, const std::string& kept, NCDataSet& dataSet) {
  ncds::detail::StringSource source(kept);
  std::istream is(&source);
  return static_cast<bool>(is >> dataSet);
}

void NCProject::EraseDataSetStream(int) {}

boost::shared_ptr<NCDataContainerBase const> NCProject::GetDataContainer(int number) const {
  const auto it = mDataSets.find(number);
  if (it == mDataSets.end()) return nullptr;
  if (it->second.loaded) return it->second.loaded;
  return it->second.info;
}

boost::shared_ptr<NCDataSetInfo const> NCProject::GetDataSetInfo(int number) const {
  const auto it = mDataSets.find(number);
  return it == mDataSets.end() ? nullptr : it->second.info;
}

std::vector<int> NCProject::GetDataSetNumbers() const {
  std::vector<int> numbers;
  numbers.reserve(mDataSets.size());
  for (const auto& entry : mDataSets) numbers.push_back(entry.first);
  return numbers;
}

boost::shared_ptr<NCDataSet> NCProject::LoadDataSet(int number) {
  const auto it = mDataSets.find(number);
  if (it == mDataSets.end()) return nullptr;
  const boost::shared_ptr<NCDataSet> dataSet = NCDataSet::Create(shared_from_this(), number);
  if (!ReadDataSetStream(number, it->second.stream, *dataSet)) return nullptr;
  it->second.loaded = dataSet;
  return dataSet;
}

bool NCProject::IsDataSetLoaded(int number) const {
  const auto it = mDataSets.find(number);
  return it != mDataSets.end() && it->second.loaded;
}

bool NCProject::UnloadDataSet(int number) {
  const auto it = mDataSets.find(number);
  if (it == mDataSets.end() || !it->second.loaded) return false;
  it->second.loaded.reset();
  return true;
}

const std::string* NCProject::GetDataSetStream(int number) const {
  const auto it = mDataSets.find(number);
  return it == mDataSets.end() || it->second.stream.empty() ? nullptr : &it->second.stream;
}

bool NCProject::RestoreDataSet(std::string stream, boost::shared_ptr<NCDataSetInfo const> info) {
  if (!info) return false;
  StoredDataSet stored;
  stored.stream = std::move(stream);
  stored.info = std::move(info);
  mDataSets[stored.info->GetNumber()] = std::move(stored);
  return true;
}

bool NCProject::RemoveDataSet(int number) {
  const auto it = mDataSets.find(number);
  if (it == mDataSets.end()) return false;
  EraseDataSetStream(number);
  mDataSets.erase(it);
  return true;
}
