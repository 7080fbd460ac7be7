#include "ncds/project/detail/ObservationBlocks.h"

#include <cstdint>
#include <typeinfo>

#include "ncds/foundations/detail/ByteReader.h"
#include "ncds/foundations/detail/Coding.h"
#include "ncds/metadata/ObservationInfo.h"
#include "ncds/metadata/UniqueIDs.h"

namespace ncds::detail {
namespace {

constexpr std::uint8_t kFormat = 1;

void PutVarint(std::string& out, std::uint64_t value) {
  unsigned char bytes[kMaxVarintLength];
  out.append(reinterpret_cast<const char*>(bytes), EncodeVarint(bytes, value));
}

std::uint64_t Zigzag(std::int64_t value) {
  return (static_cast<std::uint64_t>(value) << 1) ^ static_cast<std::uint64_t>(value >> 63);
}

std::int64_t Unzigzag(std::uint64_t value) {
  return static_cast<std::int64_t>(value >> 1) ^ -static_cast<std::int64_t>(value & 1);
}

// Writes `value(k)` for k in [0, n) as runs of equal values, each as its length and then
// `put(value)`.
template <class Value, class Put>
void PutRuns(std::string& out, std::size_t n, Value value, Put put) {
  for (std::size_t k = 0; k < n;) {
    std::size_t end = k + 1;
    while (end < n && value(end) == value(k)) ++end;
    PutVarint(out, end - k);
    put(value(k));
    k = end;
  }
}

// Reads runs covering [0, n): for each, its length, then `take(from, to)` reads the value
// and gives it to those positions.
template <class Take>
bool ReadRuns(ByteReader& in, std::size_t n, Take take) {
  for (std::size_t k = 0; k < n;) {
    std::uint64_t run = 0;
    if (!in.Varint(run) || run == 0 || run > n - k) return false;
    if (!take(k, k + static_cast<std::size_t>(run))) return false;
    k += static_cast<std::size_t>(run);
  }
  return true;
}

std::size_t SharedPrefix(const std::string& a, const std::string& b) {
  const std::size_t n = std::min(a.size(), b.size());
  std::size_t k = 0;
  while (k < n && a[k] == b[k]) ++k;
  return k;
}

}  // namespace

bool FitsObservationBlocks(const NCObservations& observations) {
  const auto series = static_cast<std::size_t>(observations.SizeAliases());
  for (const auto& entry : observations) {
    const VarObsInfo& record = *entry.second;
    if (typeid(record) != typeid(ObservationInfo) || record.GetUserIDs().size() > series ||
        entry.first > 0xFFFFFFFFUL) {
      return false;
    }
  }
  return true;
}

std::string EncodeObservationBlock(NCObservations::const_iterator first,
                                   NCObservations::const_iterator last) {
  std::vector<const ObservationInfo*> records;
  records.reserve(static_cast<std::size_t>(last - first));
  for (auto it = first; it != last; ++it) {
    records.push_back(static_cast<const ObservationInfo*>(it->second.get()));
  }
  const std::size_t n = records.size();
  std::string out;
  out.reserve(n * 8 + 16);
  out += static_cast<char>(kFormat);
  PutVarint(out, n);
  unsigned long previous = 0;
  for (std::size_t k = 0; k < n; ++k) {
    const unsigned long id = records[k]->GetUniqueID();
    PutVarint(out, k == 0 ? id : id - previous);
    previous = id;
  }
  std::size_t series = 0;
  PutRuns(
      out, n, [&](std::size_t k) { return records[k]->GetUserIDs().size(); },
      [&](std::size_t count) {
        series = std::max(series, count);
        PutVarint(out, count);
      });
  std::vector<const std::string*> texts;
  texts.reserve(n);
  for (std::size_t j = 0; j < series; ++j) {
    texts.clear();
    for (const ObservationInfo* record : records) {
      if (record->GetUserIDs().size() > j) texts.push_back(&record->GetUserIDs()[j]);
    }
    const std::string* before = nullptr;
    PutRuns(
        out, texts.size(), [&](std::size_t k) -> const std::string& { return *texts[k]; },
        [&](const std::string& text) {
          const std::size_t shared = before ? SharedPrefix(*before, text) : 0;
          PutVarint(out, shared);
          PutVarint(out, text.size() - shared);
          out.append(text, shared, std::string::npos);
          before = &text;
        });
  }
  PutRuns(
      out, n, [&](std::size_t k) { return records[k]->GetDefaultClass(); },
      [&](int defaultClass) { PutVarint(out, Zigzag(defaultClass)); });
  PutRuns(
      out, n, [&](std::size_t k) { return records[k]->GetBatch(); },
      [&](unsigned long batch) { PutVarint(out, batch); });
  return out;
}

bool DecodeObservationBlock(const char* data, std::size_t size, unsigned long key, int maxIDs,
                            std::vector<std::unique_ptr<ObservationInfo>>& records) {
  ByteReader in(data, size);
  std::uint8_t format = 0;
  std::uint64_t n = 0;
  // Every record takes at least the byte of its unique ID.
  if (!in.Fixed(format) || format != kFormat || !in.Varint(n) || n == 0 ||
      n > kObservationBlockSpan || n > in.Remaining()) {
    return false;
  }
  const std::uint64_t low = std::uint64_t{key} * kObservationBlockSpan;
  const std::uint64_t high = low + kObservationBlockSpan;
  std::vector<unsigned long> uniqueIDs(n);
  std::uint64_t id = 0;
  for (std::size_t k = 0; k < n; ++k) {
    std::uint64_t step = 0;
    if (!in.Varint(step) || (k > 0 && step == 0) || step >= high - (k == 0 ? 0 : id)) {
      return false;
    }
    id = k == 0 ? step : id + step;
    if (id < low || id >= high) return false;
    uniqueIDs[k] = static_cast<unsigned long>(id);
  }

  // A run of texts may stand for many records: the ID counts, bounded by the container's
  // series, bound the strings a block can make.
  std::vector<std::vector<std::string>> ids(n);
  std::vector<std::size_t> counts(n);
  std::size_t series = 0;
  if (!ReadRuns(in, n, [&](std::size_t from, std::size_t to) {
        std::uint64_t count = 0;
        if (!in.Varint(count) || count > static_cast<std::uint64_t>(maxIDs)) return false;
        series = std::max(series, static_cast<std::size_t>(count));
        std::fill(counts.begin() + from, counts.begin() + to, static_cast<std::size_t>(count));
        return true;
      })) {
    return false;
  }
  for (std::size_t k = 0; k < n; ++k) ids[k].reserve(counts[k]);
  std::vector<std::size_t> holders;
  holders.reserve(n);
  std::string text;
  for (std::size_t j = 0; j < series; ++j) {
    holders.clear();
    for (std::size_t k = 0; k < n; ++k) {
      if (counts[k] > j) holders.push_back(k);
    }
    text.clear();
    if (!ReadRuns(in, holders.size(), [&](std::size_t from, std::size_t to) {
          std::uint64_t shared = 0;
          std::uint64_t rest = 0;
          if (!in.Varint(shared) || shared > text.size() || !in.Varint(rest) ||
              rest > in.Remaining()) {
            return false;
          }
          text.resize(static_cast<std::size_t>(shared));
          text.append(reinterpret_cast<const char*>(in.Position()), static_cast<std::size_t>(rest));
          in.Skip(static_cast<std::size_t>(rest));
          for (std::size_t k = from; k < to; ++k) ids[holders[k]].push_back(text);
          return true;
        })) {
      return false;
    }
  }
  std::vector<std::int32_t> classes(n);
  if (!ReadRuns(in, n, [&](std::size_t from, std::size_t to) {
        std::uint64_t value = 0;
        if (!in.Varint(value)) return false;
        const std::int64_t defaultClass = Unzigzag(value);
        if (defaultClass < INT32_MIN || defaultClass > INT32_MAX) return false;
        std::fill(classes.begin() + from, classes.begin() + to,
                  static_cast<std::int32_t>(defaultClass));
        return true;
      })) {
    return false;
  }
  std::vector<unsigned long> batches(n);
  if (!ReadRuns(in, n,
                [&](std::size_t from, std::size_t to) {
                  std::uint64_t value = 0;
                  if (!in.Varint(value) || value > 0xFFFFFFFFu) return false;
                  std::fill(batches.begin() + from, batches.begin() + to,
                            static_cast<unsigned long>(value));
                  return true;
                }) ||
      in.Remaining() != 0) {
    return false;
  }

  records.reserve(records.size() + n);
  for (std::size_t k = 0; k < n; ++k) {
    auto record = std::make_unique<ObservationInfo>(std::move(ids[k]), uniqueIDs[k]);
    record->SetDefaultClass(classes[k]);
    record->SetBatch(batches[k]);
    records.push_back(std::move(record));
  }
  return true;
}

std::string EncodeObservationBlockList(const ObservationBlockList& blocks) {
  std::string out;
  out += static_cast<char>(kFormat);
  PutVarint(out, blocks.size());
  for (const auto& [key, count] : blocks) {
    PutVarint(out, key);
    PutVarint(out, count);
  }
  return out;
}

bool DecodeObservationBlockList(const std::string& bytes, ObservationBlockList& blocks) {
  ByteReader in(bytes.data(), bytes.size());
  std::uint8_t format = 0;
  std::uint64_t count = 0;
  // Every block takes at least two bytes.
  if (!in.Fixed(format) || format != kFormat || !in.Varint(count) || count > in.Remaining() / 2) {
    return false;
  }
  ObservationBlockList read;
  read.reserve(static_cast<std::size_t>(count));
  for (std::uint64_t k = 0; k < count; ++k) {
    std::uint64_t key = 0;
    std::uint64_t records = 0;
    if (!in.Varint(key) || key > 0xFFFFFFFFu / kObservationBlockSpan ||
        (!read.empty() && key <= read.back().first) || !in.Varint(records) || records == 0 ||
        records > kObservationBlockSpan) {
      return false;
    }
    read.emplace_back(static_cast<unsigned long>(key), static_cast<std::size_t>(records));
  }
  if (in.Remaining() != 0) return false;
  blocks = std::move(read);
  return true;
}

}  // namespace ncds::detail
