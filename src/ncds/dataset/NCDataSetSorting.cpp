// Reordering the rows of a dataset: the sort order by the values of one or more columns or by
// an observation ID series, and applying an order to the matrix and the row records at once.
//
// Keys are taken out of the dataset once, before sorting: numbers become 32-bit keys whose
// unsigned order is the requested order (missing values largest in either direction) and are
// put in order by a stable radix sort; texts are sorted stably by a case-folded prefix, with a
// full comparison only where the prefixes agree.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCProjectBase.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/ExceptionMessage.h"
#include "ncds/foundations/ExceptionMessageList.h"
#include "ncds/foundations/Messages.h"
#include "ncds/foundations/NCSignals.h"
#include "ncds/foundations/UserComm.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/foundations/VxString.h"
#include "ncds/foundations/detail/OneBased.h"
#include "ncds/foundations/detail/Prefetch.h"
#include "ncds/metadata/AliasAccess.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/ObservationInfo.h"

using ncds::detail::ToPosition;

namespace ncds::detail {
namespace {

// The sort key of a row without a value: above every key of a value, in either direction.
constexpr std::uint32_t kLastKey = 0xFFFFFFFFu;

// Below this many rows a comparison sort beats the radix sort's fixed cost.
constexpr std::size_t kRadixThreshold = 512;

// The key of `value` whose unsigned order is the order of the values (descending when not
// `ascending`); NaN and the missing value get kLastKey. Negative and positive zero get the
// same key, so that they keep their order like other equal values.
inline std::uint32_t NumberKey(float value, bool ascending) {
  if (value == NCDataMatrix<float>::kMissing || std::isnan(value)) return kLastKey;
  value += 0.0F;  // -0 becomes +0
  std::uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  // Negative numbers: all bits flipped, so larger magnitudes come first; positive numbers
  // go above them by their sign bit. The largest key this gives is +inf's 0xFF800000.
  bits = (bits & 0x80000000u) ? ~bits : (bits | 0x80000000u);
  // Reversed for descending; -inf then becomes 0xFF800000, still below kLastKey.
  return ascending ? bits : ~bits;
}

// `text` as a number, as VxString::ToFloat reads it. Numeric IDs are mostly counters: up to
// seven digits after an optional sign are read here directly (each such integer is exactly a
// float), anything else by ToFloat.
bool IDAsNumber(const std::string& text, float& value) {
  const std::size_t size = text.size();
  std::size_t i = size != 0 && (text[0] == '-' || text[0] == '+') ? 1 : 0;
  if (size > i && size - i <= 7) {
    std::uint32_t digits = 0;
    for (; i < size; ++i) {
      const unsigned digit = static_cast<unsigned char>(text[i]) - unsigned{'0'};
      if (digit > 9) break;
      digits = digits * 10 + digit;
    }
    if (i == size) {
      value = text[0] == '-' ? -static_cast<float>(digits) : static_cast<float>(digits);
      return true;
    }
  }
  return VxString::ToFloat(text, value);
}

// Sorts `items` stably by their upper 32 bits (the key); the lower 32 bits travel along.
// `scratch` is working room of the same size.
void SortByKey(std::vector<std::uint64_t>& items, std::vector<std::uint64_t>& scratch) {
  const std::size_t n = items.size();
  if (n < kRadixThreshold) {
    std::stable_sort(items.begin(), items.end(),
                     [](std::uint64_t a, std::uint64_t b) { return (a >> 32) < (b >> 32); });
    return;
  }
  // Three passes of 11 bits over the key, least significant digit first; a digit that is
  // the same for every item needs no pass.
  constexpr int kDigitBits = 11;
  constexpr std::size_t kBuckets = std::size_t{1} << kDigitBits;
  constexpr int kPasses = 3;
  std::vector<std::size_t> counts(kPasses * kBuckets, 0);
  for (const std::uint64_t item : items) {
    const std::uint32_t key = static_cast<std::uint32_t>(item >> 32);
    for (int pass = 0; pass < kPasses; ++pass) {
      ++counts[pass * kBuckets + ((key >> (pass * kDigitBits)) & (kBuckets - 1))];
    }
  }
  scratch.resize(n);
  std::uint64_t* from = items.data();
  std::uint64_t* to = scratch.data();
  for (int pass = 0; pass < kPasses; ++pass) {
    std::size_t* bucket = counts.data() + pass * kBuckets;
    const int shift = 32 + pass * kDigitBits;
    if (bucket[(from[0] >> shift) & (kBuckets - 1)] == n) continue;
    std::size_t start = 0;
    for (std::size_t b = 0; b < kBuckets; ++b) {
      const std::size_t count = bucket[b];
      bucket[b] = start;
      start += count;
    }
    for (std::size_t i = 0; i < n; ++i) {
      const std::uint64_t item = from[i];
      to[bucket[(item >> shift) & (kBuckets - 1)]++] = item;
    }
    std::swap(from, to);
  }
  if (from != items.data()) items.swap(scratch);
}

// Puts `order` (rows) in the order of `keys`, where keys[i] is the key of row order[i]; rows
// with equal keys keep their relative order.
void StableOrderByKeys(const std::vector<std::uint32_t>& keys, NCIntegralVector<int, -99>& order,
                       std::vector<std::uint64_t>& items, std::vector<std::uint64_t>& scratch) {
  const std::size_t n = order.size();
  items.resize(n);
  for (std::size_t i = 0; i < n; ++i) {
    items[i] = (std::uint64_t{keys[i]} << 32) | static_cast<std::uint32_t>(order[i]);
  }
  SortByKey(items, scratch);
  int* rows = order.data();
  for (std::size_t i = 0; i < n; ++i) rows[i] = static_cast<int>(items[i] & 0xFFFFFFFFu);
}

NCIntegralVector<int, -99> Identity(std::size_t n) {
  NCIntegralVector<int, -99> order(n, 0);
  int* rows = order.data();
  for (std::size_t i = 0; i < n; ++i) rows[i] = static_cast<int>(i);
  return order;
}

// The `n` rows ordered by the values of `columns` (0-based), the first deciding first; missing
// values last in each. Sorting stably by the last column first and by the first column last
// gives that order, each pass keeping the order of the rows its column cannot tell apart.
NCIntegralVector<int, -99> OrderByColumns(const NCDataMatrix<float>& data, std::size_t n,
                                          const std::vector<std::size_t>& columns, bool ascending) {
  NCIntegralVector<int, -99> order = Identity(n);
  if (n == 0 || columns.empty()) return order;
  if (data.SizeRows() != n) {
    throw NCInternalError("NCDataSet: the matrix has " + std::to_string(data.SizeRows()) +
                          " rows for " + std::to_string(n) + " observations");
  }
  std::vector<std::uint32_t> keys(n);
  std::vector<std::uint64_t> items;
  std::vector<std::uint64_t> scratch;
  for (auto column = columns.rbegin(); column != columns.rend(); ++column) {
    const float* values = data.ColumnData(*column);
    const int* rows = order.data();
    for (std::size_t i = 0; i < n; ++i) keys[i] = NumberKey(values[rows[i]], ascending);
    StableOrderByKeys(keys, order, items, scratch);
  }
  return order;
}

// A row's ID for sorting as text: the first eight bytes with ASCII letters folded to lower
// case, packed so that comparing the numbers compares those bytes as VxStdString::CompareNoCase
// does (a shorter text is padded with zero bytes, so equal prefixes still need the full text).
struct TextKey {
  std::uint64_t prefix;
  std::string_view text;
  int row;
};

std::uint64_t FoldedPrefix(std::string_view text) {
  std::uint64_t prefix = 0;
  const std::size_t count = std::min<std::size_t>(text.size(), 8);
  for (std::size_t i = 0; i < 8; ++i) {
    unsigned char c = i < count ? static_cast<unsigned char>(text[i]) : 0;
    if (c >= 'A' && c <= 'Z') c = static_cast<unsigned char>(c + ('a' - 'A'));
    prefix = (prefix << 8) | c;
  }
  return prefix;
}

// Orders `keys` stably by their texts ignoring case, ascending or descending, and returns the
// rows in that order followed by `empty` (rows without an ID, in their own order).
NCIntegralVector<int, -99> OrderByTexts(std::vector<TextKey>& keys, const std::vector<int>& empty,
                                        bool ascending) {
  const auto before = [](const TextKey& a, const TextKey& b) {
    if (a.prefix != b.prefix) return a.prefix < b.prefix;
    return VxStdString::CompareNoCase(a.text, b.text) < 0;
  };
  if (ascending) {
    std::stable_sort(keys.begin(), keys.end(), before);
  } else {
    std::stable_sort(keys.begin(), keys.end(),
                     [&before](const TextKey& a, const TextKey& b) { return before(b, a); });
  }
  NCIntegralVector<int, -99> order(keys.size() + empty.size(), 0);
  int* rows = order.data();
  for (const TextKey& key : keys) *rows++ = key.row;
  for (const int row : empty) *rows++ = row;
  return order;
}

// Whether `order` holds each of 0..n-1 exactly once.
bool IsPermutation(const NCIntegralVector<int, -99>& order, std::size_t n) {
  if (order.size() != n) return false;
  std::vector<bool> seen(n, false);
  for (const int row : order) {
    if (row < 0 || static_cast<std::size_t>(row) >= n || seen[static_cast<std::size_t>(row)]) {
      return false;
    }
    seen[static_cast<std::size_t>(row)] = true;
  }
  return true;
}

}  // namespace
}  // namespace ncds::detail

NCIntegralVector<int, -99> NCDataSet::GetSortOrder(int key, bool byVariable, bool ascending,
                                                   bool numeric) const {
  const std::size_t n = mObsInfos.size();
  if (byVariable) {
    std::size_t column = 0;
    if (!ToPosition(key, mVarIDs.size(), column)) {
      throw NCError(ExceptionMessage::translate("Invalid variable number"));
    }
    return ncds::detail::OrderByColumns(mData, n, {column}, ascending);
  }

  const auto project = GetProject();
  if (!project) throw NCError(ExceptionMessage::translate("Invalid observation ID"));
  const AliasAccess aliases(project->GetObservationIDSource());
  std::size_t series = 0;
  if (!ToPosition(key, static_cast<std::size_t>(aliases.SizeAliases()), series)) {
    throw NCError(ExceptionMessage::translate("Invalid observation ID"));
  }
  // The ID of `row`. The records lie wherever they were allocated, so the record eight rows on
  // and then the IDs of the record four rows on are asked for ahead of their use.
  const auto idOf = [this, key, series, n, &aliases](std::size_t row) -> const std::string& {
    if (row + 8 < n) ncds::detail::Prefetch(mObsInfos[row + 8]);
    if (row + 4 < n) {
      if (const ObservationInfo* ahead = mObsInfos[row + 4]) {
        const std::vector<std::string>& ids = ahead->GetUserIDs();
        if (series < ids.size()) ncds::detail::Prefetch(&ids[series]);
      }
    }
    const ObservationInfo* info = mObsInfos[row];
    if (!info) {
      throw NCError(ExceptionMessage::translate("An observation ID could not be found."),
                    NCError::Inconsistency);
    }
    return aliases.GetAlias(key, *info);
  };

  if (numeric) {
    // IDs that are not numbers (empty ones included) take the missing value's key.
    std::vector<std::uint32_t> keys(n);
    for (std::size_t row = 0; row < n; ++row) {
      float value = 0;
      keys[row] = ncds::detail::IDAsNumber(idOf(row), value)
                      ? ncds::detail::NumberKey(value, ascending)
                      : ncds::detail::kLastKey;
    }
    NCIntegralVector<int, -99> order = ncds::detail::Identity(n);
    std::vector<std::uint64_t> items;
    std::vector<std::uint64_t> scratch;
    ncds::detail::StableOrderByKeys(keys, order, items, scratch);
    return order;
  }

  // Texts: a row without an ID in the series has nothing to compare and goes last.
  std::vector<ncds::detail::TextKey> keys;
  keys.reserve(n);
  std::vector<int> empty;
  for (std::size_t row = 0; row < n; ++row) {
    const std::string& id = idOf(row);
    if (id.empty()) {
      empty.push_back(static_cast<int>(row));
    } else {
      keys.push_back({ncds::detail::FoldedPrefix(id), id, static_cast<int>(row)});
    }
  }
  return ncds::detail::OrderByTexts(keys, empty, ascending);
}

bool NCDataSet::SortDataset(int key, bool byVariable, bool ascending, bool numeric,
                            const NCIntegralVector<int, -99>* order) {
  SetBatchInfoVecDirty();
  if (const auto project = GetProject()) {
    // Batches are runs of rows; a new row order would tear them apart.
    if (project->GetObservations().HasBatches()) {
      UserComm::GetUserComm()->ShowMessages(
          ExceptionMessageList(
              ExceptionMessage::translate("Sorting of batch datasets are not allowed")),
          NCMessages::Translate("Dialog caption", "Sort Dataset"));
      return false;
    }
    if (project->GetDependencyCount() > 0 && !AskChange(nullptr, true)) return false;
  }
  if (order) {
    if (!ncds::detail::IsPermutation(*order, mObsInfos.size())) {
      throw NCError(ExceptionMessage::translate("Invalid observation number"));
    }
    ApplyRowOrder(*order);
  } else {
    ApplyRowOrder(GetSortOrder(key, byVariable, ascending, numeric));
  }
  NCSignals::RaiseVarObsDeleted(this);
  return true;
}

bool NCDataSet::SortDataset(const NCIntegralVector<unsigned long, 0>& varIDs, bool ascending) {
  // A batch dataset is refused, with its message, before the key is looked at.
  if (const auto project = GetProject(); project && project->GetObservations().HasBatches()) {
    return SortDataset(1, true, ascending, false, nullptr);
  }
  // The columns of the variables, each once; a repeated variable could not change the order.
  std::vector<std::size_t> columns;
  columns.reserve(varIDs.size());
  for (const unsigned long id : varIDs) {
    const std::ptrdiff_t column = mVarIDs.Find(id);
    if (column < 0) throw NCError(ExceptionMessage::translate("Invalid variable ID"));
    const auto position = static_cast<std::size_t>(column);
    if (std::find(columns.begin(), columns.end(), position) == columns.end()) {
      columns.push_back(position);
    }
  }
  const NCIntegralVector<int, -99> order =
      ncds::detail::OrderByColumns(mData, mObsInfos.size(), columns, ascending);
  return SortDataset(1, true, ascending, false, &order);
}

void NCDataSet::ApplyRowOrder(const NCIntegralVector<int, -99>& order) {
  // The new list of records is made first, so that running out of memory on either copy
  // leaves the rows and their records as they were.
  VarObsInfoVector<ObservationInfo> infos(order.size());
  NCIntegralVector<unsigned long, 0> ids(order.size());
  for (std::size_t i = 0; i < order.size(); ++i) {
    const auto from = static_cast<std::size_t>(order[i]);
    infos(i) = mObsInfos[from];
    ids(i) = mRowIDs[from];
  }
  mData.ReduceRows(order);
  mObsInfos = std::move(infos);
  mRowIDs = std::move(ids);
  // Trim records are kept by observation ID and need no update.
  mDirty = true;
  mSortFlagsValid = false;
}
