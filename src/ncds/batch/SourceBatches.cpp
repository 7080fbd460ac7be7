#include "ncds/batch/SourceBatches.h"

#include <istream>
#include <ostream>
#include <unordered_map>

#include "ncds/batch/BatchUtilities.h"
#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/ObservationInfo.h"

namespace ncds::detail {
namespace {

// 64-bit FNV-1a over the bytes of `value`.
std::uint64_t Mix(std::uint64_t hash, std::uint64_t value) {
  for (int byte = 0; byte < 8; ++byte) {
    hash ^= (value >> (8 * byte)) & 0xFF;
    hash *= 0x100000001B3ULL;
  }
  return hash;
}

constexpr std::uint64_t kEmptyDigest = 0xCBF29CE484222325ULL;

}  // namespace
}  // namespace ncds::detail

SourceBatches SourceBatches::Of(const NCObservations& observations,
                                const VarObsInfoVector<ObservationInfo>& rows) {
  namespace d = ncds::detail;
  const std::vector<int> starts = BatchUtilities::GetRunStarts(observations, rows, false);
  std::vector<Entry> batches;
  std::unordered_map<std::string, std::size_t> at;
  for (std::size_t r = 0; r < starts.size(); ++r) {
    const auto begin = static_cast<std::size_t>(starts[r] - 1);
    const std::size_t end =
        r + 1 < starts.size() ? static_cast<std::size_t>(starts[r + 1] - 1) : rows.size();
    const ObservationInfo* head = rows[begin];
    if (!head) continue;
    const std::string& name = head->GetBatchName(observations);
    if (name.empty()) continue;
    const auto [where, fresh] = at.try_emplace(name, batches.size());
    if (fresh) batches.emplace_back(name, d::kEmptyDigest);
    std::uint64_t& digest = batches[where->second].second;
    digest = d::Mix(digest, end - begin);
    for (std::size_t i = begin; i < end; ++i) {
      digest = d::Mix(digest, rows[i] ? rows[i]->GetUniqueID() : 0);
    }
  }
  return SourceBatches(std::move(batches));
}

SourceBatches::Lag SourceBatches::LagBehind(const SourceBatches& now) const {
  std::unordered_map<std::string, std::uint64_t> before;
  before.reserve(mBatches.size());
  for (const auto& [name, digest] : mBatches) before.emplace(name, digest);
  Lag lag;
  for (const auto& [name, digest] : now.mBatches) {
    const auto found = before.find(name);
    if (found == before.end()) {
      lag.added.push_back(name);
    } else {
      if (found->second != digest) lag.changed.push_back(name);
      before.erase(found);
    }
  }
  for (const auto& entry : mBatches) {
    if (before.count(entry.first) != 0) lag.gone.push_back(entry.first);
  }
  return lag;
}

bool SourceBatches::Write(std::ostream& os) const {
  const auto count = static_cast<std::uint32_t>(mBatches.size());
  bool ok = WriteFourBytes(&count, 1, os);
  for (const Entry& entry : mBatches) {
    ok = ok && WriteBinaryString(entry.first, os) && WriteEightBytes(&entry.second, 1, os);
  }
  return ok;
}

void SourceBatches::Read(std::istream& is) {
  std::uint32_t count = 0;
  ReadFourBytes(&count, 1, is);
  RequireStreamBytes(is, std::uint64_t{count} * 12);  // a name length and a digest each
  std::vector<Entry> batches(count);
  for (Entry& entry : batches) {
    ReadBinaryString(entry.first, is);
    ReadEightBytes(&entry.second, 1, is);
  }
  mBatches = std::move(batches);
}
