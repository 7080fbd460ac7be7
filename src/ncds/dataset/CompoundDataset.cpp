#include "ncds/dataset/CompoundDataset.h"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <istream>
#include <ostream>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "ncds/batch/BatchInfoVector.h"
#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCProjectBase.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/InputStreamDirectory.h"
#include "ncds/foundations/OutputStreamDirectory.h"
#include "ncds/foundations/ReadFromStreamDir.h"
#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/foundations/detail/OneBased.h"
#include "ncds/metadata/AliasAccess.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/VariableInfo.h"

using ncds::detail::ToPosition;

namespace ncds::detail {
namespace {

constexpr std::int16_t kCompoundVersion = 1;
constexpr std::uint16_t kCompoundTags = 3;
constexpr std::uint16_t kTagName = 0;
constexpr std::uint16_t kTagNumber = 1;
constexpr std::uint16_t kTagMembers = 2;

// Whether a member repeats; `repeated` then names the first that does.
bool FindRepeat(const std::vector<int>& members, int& repeated) {
  std::unordered_set<int> seen;
  for (const int member : members) {
    if (!seen.insert(member).second) {
      repeated = member;
      return true;
    }
  }
  return false;
}

void RefuseRepeats(const std::vector<int>& members) {
  int repeated = 0;
  if (!FindRepeat(members, repeated)) return;
  throw NCError(
      ExceptionMessage::translate("A compound dataset cannot include dataset {1} twice.") %
      repeated);
}

// Appends the entries of `from` not yet in `into`.
void AddAliases(std::vector<int>& into, const std::vector<int>& from) {
  for (const int series : from) {
    if (std::find(into.begin(), into.end(), series) == into.end()) into.push_back(series);
  }
}

}  // namespace
}  // namespace ncds::detail

const VStreamableData CompoundDataset::msVStreamData(ncds::detail::kCompoundVersion, "NCCOMPDS");

CompoundDataset::CompoundDataset(boost::shared_ptr<NCProjectBase> project)
    : NCDataContainerBase(std::move(project)) {}

CompoundDataset::CompoundDataset(boost::shared_ptr<NCProjectBase> project, std::string name,
                                 int number, std::vector<int> members)
    : NCDataContainerBase(std::move(project)), mName(std::move(name)), mNumber(number) {
  ncds::detail::RefuseRepeats(members);
  mMembers = std::move(members);
}

CompoundDataset::CompoundDataset(const CompoundDataset& other)
    : VStreamBase(other),
      NCDataContainerBase(other),
      mName(other.mName),
      mNumber(other.mNumber),
      mMembers(other.mMembers) {}

CompoundDataset::~CompoundDataset() = default;

void CompoundDataset::SetMembers(std::vector<int> members) {
  ncds::detail::RefuseRepeats(members);
  mMembers = std::move(members);
  mStale = true;
}

void CompoundDataset::Refresh() const { mStale = true; }

const CompoundDataset::Layout& CompoundDataset::Current() const {
  if (mStale) {
    WorkOut();
    mStale = false;
  }
  return mLayout;
}

void CompoundDataset::WorkOut() const {
  Layout layout;
  const auto project = GetProject();
  std::vector<boost::shared_ptr<NCDataContainerBase const>> containers;
  containers.reserve(mMembers.size());
  for (const int member : mMembers) {
    auto container = project ? project->GetDataContainer(member) : nullptr;
    // Another compound under a member's number is no dataset: taking it would nest compounds.
    if (!container || dynamic_cast<const CompoundDataset*>(container.get())) {
      layout.missing.push_back(member);
    }
    containers.push_back(std::move(container));
  }
  if (!layout.missing.empty() || containers.empty()) {
    layout.obsAliases = {1};
    layout.varAliases = {1};
    layout.rowStart.assign(mMembers.size() + 1, 0);
    layout.memberColumns.assign(mMembers.size(), {});
    mLayout = std::move(layout);
    return;
  }

  // Columns: the union of the members' variable IDs in order of first appearance.
  std::unordered_map<unsigned long, std::size_t> columnOf;
  std::vector<NCIntegralVector<unsigned long, 0>> memberIDs;
  memberIDs.reserve(containers.size());
  std::size_t rowCount = 0;
  for (const auto& container : containers) {
    memberIDs.push_back(container->GetVarIDs());
    for (const unsigned long id : memberIDs.back()) {
      if (columnOf.emplace(id, layout.varIDs.size()).second) layout.varIDs.push_back(id);
    }
    rowCount += container->GetObservationInfoVector().size();
  }
  const std::size_t columns = layout.varIDs.size();

  layout.rows.reserve(rowCount);
  layout.rowStart.reserve(containers.size() + 1);
  layout.memberColumns.reserve(containers.size());
  int sharedType = ~0;
  bool allHaveBatches = true;
  for (std::size_t m = 0; m < containers.size(); ++m) {
    const NCDataContainerBase& container = *containers[m];
    layout.rowStart.push_back(layout.rows.size());
    const VarObsInfoVector<ObservationInfo>& rows = container.GetObservationInfoVector();
    layout.rows.insert(layout.rows.end(), rows.begin(), rows.end());
    std::vector<int> memberColumns(columns, -1);
    const NCIntegralVector<unsigned long, 0>& ids = memberIDs[m];
    for (std::size_t j = ids.size(); j-- > 0;) {
      // Walking backwards leaves a repeated ID on its first column.
      memberColumns[columnOf[ids[j]]] = static_cast<int>(j);
    }
    layout.memberColumns.push_back(std::move(memberColumns));
    sharedType &= container.GetDataType();
    allHaveBatches = allHaveBatches && container.GetBatchInfoVector() != nullptr;
    ncds::detail::AddAliases(layout.obsAliases, container.GetUsedObsAliases());
    ncds::detail::AddAliases(layout.varAliases, container.GetUsedVarAliases());
  }
  layout.rowStart.push_back(layout.rows.size());

  if (!allHaveBatches) sharedType &= ~NCDataSet::kBatchBit;
  layout.dataType = sharedType == 0 ? NCDataSet::kOrdinary : sharedType;
  if (layout.dataType & NCDataSet::kBatchBit) {
    auto batches = boost::make_shared<BatchInfoVector>();
    const NCIntegralVector<unsigned long, 0> conditions =
        containers.front()->GetBatchInfoVector()->GetBCVariableIDs();
    bool sameConditions = true;
    for (const auto& container : containers) {
      const BatchInfoVector copy(*container->GetBatchInfoVector());  // clones every batch
      sameConditions = sameConditions && copy.GetBCVariableIDs() == conditions;
      for (const auto& batch : copy) batches->push_back(batch);
    }
    if (sameConditions) {
      batches->SetBCVariableIDs(conditions);
    } else {
      for (const auto& batch : *batches) {
        if (batch) batch->SetBatchConditionValues(nullptr);
      }
    }
    layout.batches = std::move(batches);
  }
  mLayout = std::move(layout);
}

int CompoundDataset::MemberPosition(int member) const {
  const auto it = std::find(mMembers.begin(), mMembers.end(), member);
  return it == mMembers.end() ? -1 : static_cast<int>(it - mMembers.begin());
}

const std::vector<int>& CompoundDataset::GetMissingMembers() const { return Current().missing; }

bool CompoundDataset::LocateRow(int index, int& member, int& memberRow) const {
  const Layout& layout = Current();
  std::size_t row = 0;
  if (!ToPosition(index, layout.rows.size(), row)) return false;
  // The last member whose first row is at or before `row`; members without rows share their
  // start with the next one, so the search lands on the member that holds the row.
  const auto after = std::upper_bound(layout.rowStart.begin(), layout.rowStart.end() - 1, row);
  const auto position = static_cast<std::size_t>(after - layout.rowStart.begin()) - 1;
  member = mMembers[position];
  memberRow = static_cast<int>(row - layout.rowStart[position]) + 1;
  return true;
}

int CompoundDataset::GetMemberColumn(int member, int index) const {
  const Layout& layout = Current();
  const int position = MemberPosition(member);
  std::size_t column = 0;
  if (position < 0 || !ToPosition(index, layout.varIDs.size(), column)) return 0;
  return layout.memberColumns[static_cast<std::size_t>(position)][column] + 1;
}

bool CompoundDataset::GetMemberRows(int member, int& first, int& count) const {
  const Layout& layout = Current();
  const int position = MemberPosition(member);
  if (position < 0 || !layout.missing.empty()) return false;
  const auto p = static_cast<std::size_t>(position);
  first = static_cast<int>(layout.rowStart[p]) + 1;
  count = static_cast<int>(layout.rowStart[p + 1] - layout.rowStart[p]);
  return true;
}

int CompoundDataset::GetDataType() const { return Current().dataType; }

const VarObsInfoVector<ObservationInfo>& CompoundDataset::GetObservationInfoVector() const {
  return Current().rows;
}

NCIntegralVector<unsigned long, 0> CompoundDataset::GetVarIDs() const { return Current().varIDs; }

int CompoundDataset::SizeObservations() const { return static_cast<int>(Current().rows.size()); }

int CompoundDataset::SizeVariables() const { return static_cast<int>(Current().varIDs.size()); }

const std::vector<int>& CompoundDataset::GetUsedObsAliases() const { return Current().obsAliases; }

const std::vector<int>& CompoundDataset::GetUsedVarAliases() const { return Current().varAliases; }

unsigned long CompoundDataset::GetVarID(int index) const {
  const Layout& layout = Current();
  std::size_t position = 0;
  return ToPosition(index, layout.varIDs.size(), position) ? layout.varIDs[position] : 0;
}

const ObservationInfo* CompoundDataset::GetObservationInfo(int index) const {
  const Layout& layout = Current();
  std::size_t position = 0;
  return ToPosition(index, layout.rows.size(), position) ? layout.rows[position] : nullptr;
}

const std::string& CompoundDataset::GetVariableID(int index, int aliasSeries) const {
  const auto project = GetProject();
  const unsigned long id = GetVarID(index);
  if (!project || id == 0) return VxStdString::Empty();
  const NCVariables& variables = project->GetVariables();
  const VariableInfo* info = variables[id];
  return info ? AliasAccess(variables).GetAlias(aliasSeries, *info) : VxStdString::Empty();
}

boost::shared_ptr<BatchInfoVector const> CompoundDataset::GetBatchInfoVector() const {
  return Current().batches;
}

bool CompoundDataset::VStreamableStartWrite(std::ostream& os) const {
  if (!mGuard.Enter()) return true;
  if (!msVStreamData.Write(os)) return false;
  namespace d = ncds::detail;
  OutputStreamDirectory directory(os, d::kCompoundTags);
  bool ok = WriteToStreamDir(mName, directory, d::kTagName) &&
            WriteToStreamDir(mNumber, directory, d::kTagNumber);
  if (ok) {
    std::ostream& members = directory.GetOutput(d::kTagMembers);
    const auto count = static_cast<std::uint32_t>(mMembers.size());
    const std::vector<std::int32_t> numbers(mMembers.begin(), mMembers.end());
    ok = WriteFourBytes(&count, 1, members) &&
         (numbers.empty() || WriteFourBytes(numbers.data(), count, members));
  }
  return directory.Close() && ok && static_cast<bool>(os);
}

bool CompoundDataset::VStreamableStartRead(std::istream& is) {
  if (!mGuard.Enter()) return true;
  std::int16_t version = 0;
  if (!msVStreamData.Check(is, version) || version != ncds::detail::kCompoundVersion) {
    return false;
  }
  return ReadStreamDirectory(is);
}

bool CompoundDataset::ReadStreamDirectory(std::istream& is) {
  namespace d = ncds::detail;
  InputStreamDirectory directory(is);
  std::string name;
  std::int32_t number = 0;
  std::vector<std::int32_t> numbers;
  bool ok = directory.IsValid();
  try {
    if (ok) {
      ReadFromStreamDir(name, directory, d::kTagName, true);
      ReadFromStreamDir(number, directory, d::kTagNumber, true);
      std::istream& members = GetRequiredInput(directory, d::kTagMembers);
      std::uint32_t count = 0;
      ReadFourBytes(&count, 1, members);
      RequireStreamBytes(members, std::uint64_t{count} * 4);
      numbers.resize(count);
      if (count > 0) ReadFourBytes(numbers.data(), count, members);
    }
  } catch (const VxStreamError&) {
    ok = false;
  }
  directory.Close();
  std::vector<int> members(numbers.begin(), numbers.end());
  int repeated = 0;
  if (!ok || !is || d::FindRepeat(members, repeated)) return false;
  mName = std::move(name);
  mNumber = number;
  mMembers = std::move(members);
  mStale = true;
  return true;
}

void CompoundDataset::VStreamableReset() const { mGuard.Reset(); }
