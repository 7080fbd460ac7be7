#include "ncds/metadata/VarObs.h"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <boost/thread/lock_guard.hpp>
#include <istream>
#include <ostream>
#include <typeinfo>
#include <utility>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/FactoryRepository.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/Messages.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"
#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/foundations/VxString.h"
#include "ncds/metadata/SelectedLabel.h"
#include "ncds/metadata/VarObsInfo.h"

namespace ncds::detail {
namespace {

constexpr std::int16_t kVersion = 2;
constexpr std::uint16_t kNumberOfTags = 8;
constexpr std::uint16_t kTagRecordCount = 0;
constexpr std::uint16_t kTagSeriesCount = 1;
constexpr std::uint16_t kTagNumerals = 2;
constexpr std::uint16_t kTagLabels = 3;
constexpr std::uint16_t kTagRecords = 4;
constexpr std::uint16_t kTagSelectedLabel = 5;
constexpr std::uint16_t kTagBatchSeries = 6;
constexpr std::uint16_t kTagPhaseSeries = 7;

// The fewest bytes a polymorphic record takes: the name's length and one byte of it, the
// record's magic length, one byte of magic and its version.
constexpr std::uint64_t kMinRecordBytes = 9;

// Position in the per-series arrays of the 1-based series `series`, when it is within
// 1..count.
bool ToPosition(int series, std::size_t count, std::size_t& position) {
  if (series < 1 || static_cast<std::size_t>(series) > count) return false;
  position = static_cast<std::size_t>(series) - 1;
  return true;
}

// True when the whole of `text` (leading white space aside) is a number.
bool IsNumber(const std::string& text) {
  char* end = nullptr;
  const char* begin = text.c_str();
  vxstrtod(begin, &end);
  return end != begin && end == begin + text.size();
}

// Names of record classes for writing, and factories for reading, remembered from one record
// to the next: the records of a container are nearly always of one or two classes, and the
// repository's look-ups take its lock.
class RecordClasses {
 public:
  const std::string& NameOf(const VarObsInfo& info) {
    const std::type_info& type = typeid(info);
    if (!mType || *mType != type) {
      std::string name = OBJCREAT_Details::FactoryRepositoryBase::Instance().GetRealName(type);
      if (name.empty()) {
        throw NCInternalError(std::string("record class without a factory: ") + type.name());
      }
      mName = std::move(name);
      mType = &type;
    }
    return mName;
  }

  std::unique_ptr<VarObsInfo> Create(const std::string& name) {
    if (!mFactory || name != mName) {
      mFactory = nullptr;
      mFactory = OBJCREAT_Details::FactoryRepositoryBase::Instance().GetFactory(name);
      if (!mFactory) {
        throw Exception(ExceptionMessage::translate(
                            "Internal error: Could not find a factory method for '{1}'.") %
                        name);
      }
      mName = name;
    }
    std::unique_ptr<VStreamBase> made = mFactory->Create();
    auto* info = dynamic_cast<VarObsInfo*>(made.get());
    if (!info) {
      throw Exception(
          ExceptionMessage::translate("Internal error: No factory found that produces '{1}'.") %
          "VarObsInfo");
    }
    made.release();
    return std::unique_ptr<VarObsInfo>(info);
  }

  std::unique_ptr<VarObsInfo> Read(std::istream& is) {
    ReadBinaryString(mReadName, is);
    std::unique_ptr<VarObsInfo> info = Create(mReadName);
    if (!(is >> *info)) ThrowStreamReadError();
    return info;
  }

 private:
  const std::type_info* mType = nullptr;
  const OBJCREAT_Details::ProductFactoryBase* mFactory = nullptr;
  std::string mName;
  std::string mReadName;
};

bool WriteRecord(const VarObsInfo& info, RecordClasses& classes, std::ostream& os) {
  WriteBinaryString(classes.NameOf(info), os);
  os << info;
  return static_cast<bool>(os);
}

}  // namespace
}  // namespace ncds::detail

using ncds::detail::ToPosition;

// What a read collects before it replaces the container's content.
struct VarObs::Contents {
  std::vector<std::string> labels;
  std::vector<unsigned char> numerals;
  InfoMap infos;
  std::unique_ptr<SelectedLabel> selectedLabel;
  std::int32_t batchSeries = 0;
  std::int32_t phaseSeries = 0;
};

const VStreamableData VarObs::msVStreamData(ncds::detail::kVersion, "VO");

VarObsInfoAccess::~VarObsInfoAccess() = default;
void VarObsInfoAccess::ReservedAccessSlot() {}

VarObs::VarObs() : mLabels(1), mSelectedLabel(std::make_unique<SelectedLabel>()), mNumerals(1, 0) {}

VarObs::~VarObs() = default;

VarObsInfo* VarObs::FindVarObsInfo(unsigned long uniqueID) const {
  const auto found = mInfos.find(uniqueID);
  return found == mInfos.end() ? nullptr : found->second.get();
}

VarObsInfo* VarObs::Add(std::unique_ptr<VarObsInfo> info, InfosByUserID* lookup) {
  if (!info) throw NCInternalError("VarObs::Add: no record");
  const unsigned long uniqueID = info->GetUniqueID();
  // Records mostly arrive with growing unique IDs: try the end first.
  const auto hint = !mInfos.empty() && std::prev(mInfos.end())->first < uniqueID
                        ? mInfos.end()
                        : mInfos.lower_bound(uniqueID);
  if (hint != mInfos.end() && hint->first == uniqueID) {
    throw NCInternalError("VarObs::Add: unique ID " + std::to_string(uniqueID) + " is taken");
  }
  VarObsInfo* added = info.get();
  mInfos.emplace_hint(hint, uniqueID, std::move(info));
  {
    // The cached lookup stays complete only when it is the one that receives the record.
    const boost::lock_guard<boost::mutex> lock(mLookupMutex);
    if (mLookup && mLookup.get() != lookup) mLookup.reset();
  }
  if (lookup) lookup->AddInfo(added, 1);
  SetIsDirty(true);
  return added;
}

void VarObs::Reserve(std::size_t more) {
  // Grows at least geometrically, so that many small reservations in a row stay linear.
  const std::size_t wanted = mInfos.size() + more;
  if (wanted > mInfos.capacity()) mInfos.reserve(std::max(wanted, 2 * mInfos.capacity()));
}

void VarObs::DeleteVarObsInfos(const NCIntegralVector<unsigned long, 0>& uniqueIDs) {
  if (uniqueIDs.empty()) return;
  ClearInfosByUserID();
  std::vector<unsigned long> gone(uniqueIDs.begin(), uniqueIDs.end());
  std::sort(gone.begin(), gone.end());
  // One pass over the records, however many go.
  InfoMap::sequence_type records = mInfos.extract_sequence();
  records.erase(std::remove_if(records.begin(), records.end(),
                               [&gone](const InfoMap::value_type& record) {
                                 return std::binary_search(gone.begin(), gone.end(), record.first);
                               }),
                records.end());
  mInfos.adopt_sequence(boost::container::ordered_unique_range, std::move(records));
  SetIsDirty(true);
}

int VarObs::AddSecondaryID(const char* label) {
  mLabels.emplace_back(label ? label : "");
  mNumerals.push_back(0);
  SetIsDirty(true);
  OnLabelsChanged();
  return SizeAliases();
}

void VarObs::RemoveSecondaryID(const char* label) {
  if (!label) return;
  const auto found = std::find(mLabels.begin() + 1, mLabels.end(), label);
  if (found == mLabels.end()) return;
  const auto position = found - mLabels.begin();
  const int series = static_cast<int>(position) + 1;
  mLabels.erase(found);
  mNumerals.erase(mNumerals.begin() + position);
  for (auto& record : mInfos) record.second->RemoveID(series);
  for (int* role : {&mBatchSeries, &mPhaseSeries}) {
    if (*role == series) {
      *role = 0;
    } else if (*role > series) {
      --*role;
    }
  }
  ClearInfosByUserID();
  SetIsDirty(true);
  OnLabelsChanged();
}

void VarObs::SetIDLabel(int series, const char* label) {
  std::size_t position = 0;
  if (!ToPosition(series, mLabels.size(), position)) return;
  mLabels[position] = label ? label : "";
  SetIsDirty(true);
  OnLabelsChanged();
}

std::string VarObs::GetIDLabelRaw(int series) const {
  if (series == 1) {
    return NCMessages::Translate("Name of primary series of variable/observation IDs",
                                 "Primary ID");
  }
  std::size_t position = 0;
  return ToPosition(series, mLabels.size(), position) ? mLabels[position] : std::string();
}

bool VarObs::IsIDNumeral(int series) const {
  std::size_t position = 0;
  return ToPosition(series, mNumerals.size(), position) && mNumerals[position] != 0;
}

void VarObs::SetIDIsNumeral(int series, bool numeral) {
  std::size_t position = 0;
  if (!ToPosition(series, mNumerals.size(), position)) return;
  const unsigned char flag = numeral ? 1 : 0;
  if (mNumerals[position] == flag) return;
  mNumerals[position] = flag;
  SetIsDirty(true);
}

bool VarObs::HasNumeralIDs() const {
  for (int series = 1; series <= SizeAliases(); ++series) {
    if (IsIDNumeral(series)) return true;
  }
  return false;
}

void VarObs::UpdateIDNumericalState(int series) {
  std::size_t position = 0;
  if (!ToPosition(series, mNumerals.size(), position)) return;
  bool numeral = false;
  for (const auto& record : mInfos) {
    const std::string& id = record.second->GetUserID(series);
    if (!id.empty() && ncds::detail::IsNumber(id)) {
      numeral = true;
      break;
    }
  }
  SetIDIsNumeral(series, numeral);
}

void VarObs::UpdateAllIDNumericalState() {
  for (int series = 1; series <= SizeAliases(); ++series) UpdateIDNumericalState(series);
}

NCDataVector<float> VarObs::GetNumeralValues(
    int series, const NCIntegralVector<unsigned long, 0>* uniqueIDs) const {
  NCDataVector<float> values;
  if (uniqueIDs) {
    values.Reserve(uniqueIDs->size());
    for (const unsigned long uniqueID : *uniqueIDs) {
      const VarObsInfo* info = FindVarObsInfo(uniqueID);
      values.push_back(info ? info->GetUserFloatID(series) : NCDataVector<float>::kMissing);
    }
  } else {
    values.Reserve(mInfos.size());
    for (const auto& record : mInfos) values.push_back(record.second->GetUserFloatID(series));
  }
  return values;
}

std::vector<int> VarObs::GetAllUsedAliases() const {
  std::vector<int> series(mLabels.size());
  for (std::size_t i = 0; i < series.size(); ++i) series[i] = static_cast<int>(i + 1);
  return series;
}

void VarObs::Set_ID_Labels(const std::vector<std::string>* labels) {
  if (!labels) return;
  const std::size_t count = std::min(labels->size(), mLabels.size());
  for (std::size_t i = 1; i < count; ++i) mLabels[i] = (*labels)[i];
  SetIsDirty(true);
  OnLabelsChanged();
}

void VarObs::ClearInfosByUserID() {
  const boost::lock_guard<boost::mutex> lock(mLookupMutex);
  mLookup.reset();
}

boost::shared_ptr<InfosByUserID> VarObs::GetInfosByUserID(int series) const {
  if (series != 1) return boost::make_shared<InfosByUserID>(*this, series);
  const boost::lock_guard<boost::mutex> lock(mLookupMutex);
  if (!mLookup) mLookup = boost::make_shared<InfosByUserID>(*this, 1);
  return mLookup;
}

std::string VarObs::GetUniquePrimaryID(const std::string& wanted, const InfosByUserID& lookup,
                                       const std::set<std::string>* taken) {
  const auto isFree = [&](const std::string& id) {
    return !lookup.GetInfo(id) && !(taken && taken->count(id) != 0);
  };
  if (isFree(wanted)) return wanted;
  for (int suffix = 1;; ++suffix) {
    std::string candidate = wanted + "_" + std::to_string(suffix);
    if (isFree(candidate)) return candidate;
  }
}

void VarObs::SetBatchID(int series) {
  mBatchSeries = series > 0 ? series : 0;
  SetIsDirty(true);
}

void VarObs::SetPhaseID(int series) {
  mPhaseSeries = series > 0 ? series : 0;
  SetIsDirty(true);
}

int VarObs::PositionInMap(int series, const std::vector<int>& seriesMap) {
  if (series < 1) return -1;
  for (std::size_t i = 0; i < seriesMap.size(); ++i) {
    if (seriesMap[i] == series) return static_cast<int>(i + 1);
  }
  return -1;
}

int VarObs::GetBatchID(const std::vector<int>& seriesMap) const {
  return PositionInMap(mBatchSeries, seriesMap);
}

int VarObs::GetPhaseID(const std::vector<int>& seriesMap) const {
  return PositionInMap(mPhaseSeries, seriesMap);
}

bool VarObs::AcceptsInfo(const VarObsInfo&) const { return true; }

void VarObs::OnLabelsChanged() {}

void VarObs::InsertInfoID(VarObsInfo& info, int position, const char* id) {
  info.InsertID(position, id);
}

void VarObs::MoveInfoID(VarObsInfo& info, int from, int to) { info.MoveID(from, to); }

void VarObs::SwapInfoID(VarObsInfo& info, int first, int second) { info.SwapID(first, second); }

bool VarObs::WriteVarObsInfo(const VarObsInfo& info, std::ostream& os) {
  ncds::detail::RecordClasses classes;
  return ncds::detail::WriteRecord(info, classes, os);
}

std::unique_ptr<VarObsInfo> VarObs::ReadVarObsInfo(std::istream& is) {
  return ncds::detail::RecordClasses().Read(is);
}

bool VarObs::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  const bool ok = msVStreamData.Write(os) && VStreamableWrite(os);
  if (ok) mDirty = false;
  return ok;
}

bool VarObs::WriteWithoutRecords(std::ostream& os) const {
  struct Omitting {
    const VarObs& container;
    ~Omitting() { container.mOmitRecords = false; }
  } omitting{*this};
  mOmitRecords = true;
  return static_cast<bool>(os << *this);
}

bool VarObs::VStreamableWrite(std::ostream& os) const {
  using namespace ncds::detail;
  OutputStreamDirectory directory(os, kNumberOfTags);
  const std::size_t recordCount = mOmitRecords ? 0 : mInfos.size();
  WriteToStreamDir(static_cast<std::uint32_t>(recordCount), directory, kTagRecordCount);
  WriteToStreamDir(static_cast<std::int32_t>(mLabels.size()), directory, kTagSeriesCount);
  WriteBytes(mNumerals.data(), mNumerals.size(), directory.GetOutput(kTagNumerals));
  std::ostream& labels = directory.GetOutput(kTagLabels);
  const auto labelCount = static_cast<std::uint32_t>(mLabels.size());
  WriteFourBytes(&labelCount, 1, labels);
  for (const std::string& label : mLabels) WriteBinaryString(label, labels);
  if (recordCount > 0) {
    std::ostream& records = directory.GetOutput(kTagRecords);
    RecordClasses classes;
    for (const auto& record : mInfos) {
      if (!WriteRecord(*record.second, classes, records)) break;
    }
  }
  WriteToStreamDir(*mSelectedLabel, directory, kTagSelectedLabel);
  WriteToStreamDir(static_cast<std::int32_t>(mBatchSeries), directory, kTagBatchSeries);
  WriteToStreamDir(static_cast<std::int32_t>(mPhaseSeries), directory, kTagPhaseSeries);
  return directory.Close();
}

bool VarObs::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version != ncds::detail::kVersion) return false;
  Contents read;
  bool ok = false;
  {
    InputStreamDirectory directory(is);
    try {
      ok = ReadContents(directory, read);
    } catch (const VxStreamError&) {
      // Damaged bytes fail the read. A record of a class without a factory is no damage the
      // stream can show: its message ("Could not find a factory method ...") passes on.
      ok = false;
    }
    directory.Close();
  }
  // The subclass's part follows; it takes effect only together with this one.
  if (!ok || !is || !ReadExtensionPart(is, static_cast<int>(read.labels.size()))) {
    return false;
  }
  mLabels = std::move(read.labels);
  mNumerals = std::move(read.numerals);
  mInfos = std::move(read.infos);
  mSelectedLabel = std::move(read.selectedLabel);
  mBatchSeries = read.batchSeries;
  mPhaseSeries = read.phaseSeries;
  ClearInfosByUserID();
  mDirty = false;
  return true;
}

bool VarObs::ReadExtensionPart(std::istream&, int) { return true; }

bool VarObs::ReadContents(InputStreamDirectory& directory, Contents& read) const {
  using namespace ncds::detail;
  std::int32_t seriesCount = 0;
  ReadFromStreamDir(seriesCount, directory, kTagSeriesCount, true);
  if (seriesCount < 1) return false;
  const auto series = static_cast<std::size_t>(seriesCount);

  std::istream& numerals = GetRequiredInput(directory, kTagNumerals);
  RequireStreamBytes(numerals, series);
  read.numerals.resize(series);
  ReadBytes(read.numerals.data(), series, numerals);
  for (unsigned char& flag : read.numerals) flag = flag != 0 ? 1 : 0;

  std::istream& labels = GetRequiredInput(directory, kTagLabels);
  std::uint32_t labelCount = 0;
  ReadFourBytes(&labelCount, 1, labels);
  if (labelCount != series) return false;
  // Each label takes at least its four-byte length.
  RequireStreamBytes(labels, std::uint64_t{labelCount} * 4);
  read.labels.resize(series);
  for (std::string& label : read.labels) ReadBinaryString(label, labels);

  std::uint32_t recordCount = 0;
  ReadFromStreamDir(recordCount, directory, kTagRecordCount, true);
  if (recordCount > 0) {
    std::istream& records = GetRequiredInput(directory, kTagRecords);
    RequireStreamBytes(records, std::uint64_t{recordCount} * kMinRecordBytes);
    read.infos.reserve(recordCount);
    RecordClasses classes;
    for (std::uint32_t k = 0; k < recordCount; ++k) {
      std::unique_ptr<VarObsInfo> info = classes.Read(records);
      const unsigned long uniqueID = info->GetUniqueID();
      // The writer puts records in increasing unique ID: anything else is damage.
      if (!AcceptsInfo(*info) ||
          (!read.infos.empty() && std::prev(read.infos.end())->first >= uniqueID)) {
        return false;
      }
      read.infos.emplace_hint(read.infos.end(), uniqueID, std::move(info));
    }
  }

  read.selectedLabel = std::make_unique<SelectedLabel>();
  ReadFromStreamDir(*read.selectedLabel, directory, kTagSelectedLabel, false);
  ReadFromStreamDir(read.batchSeries, directory, kTagBatchSeries, false);
  ReadFromStreamDir(read.phaseSeries, directory, kTagPhaseSeries, false);
  return read.batchSeries >= 0 && read.phaseSeries >= 0;
}

void VarObs::VStreamableReset() const { mGuard.Reset(); }
