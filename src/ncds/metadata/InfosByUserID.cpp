#include "ncds/metadata/InfosByUserID.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "ncds/foundations/VxStdString.h"
#include "ncds/metadata/UniqueIDs.h"
#include "ncds/metadata/VarObs.h"
#include "ncds/metadata/VarObsInfo.h"

namespace ncds::detail {
namespace {

inline void Prefetch(const void* address) {
#if defined(__GNUC__) || defined(__clang__)
  __builtin_prefetch(address);
#else
  (void)address;
#endif
}

// Allocates like std::allocator but leaves new elements uninitialised: the tables are
// written in full before they are read, and zeroing them first would cost a pass.
template <class T>
struct TableAllocator : std::allocator<T> {
  template <class U>
  struct rebind {
    using other = TableAllocator<U>;
  };
  TableAllocator() = default;
  template <class U>
  TableAllocator(const TableAllocator<U>&) {}
  template <class U, class... Args>
  void construct(U* p, Args&&... args) {
    if constexpr (sizeof...(Args) == 0) {
      ::new (static_cast<void*>(p)) U;
    } else {
      ::new (static_cast<void*>(p)) U(std::forward<Args>(args)...);
    }
  }
};

}  // namespace

// The entries of a lookup. Most of them sit in one table ordered by hash, then by the ID
// ignoring case, then by unique ID; a directory indexed by the top bits of the hash gives the
// small range of the table that a hash can be in (one or two entries), which a binary search
// finishes. Entries added one by one after the table was built wait in a hash-indexed list
// until that list is as long as the table, and are then merged in, so that adding stays cheap.
//
// A lookup in a large table touches memory in four places that no cache holds: the ID asked
// for, the directory, the table and the record's ID text. `FindMany` overlaps these for many
// IDs at once by fetching each one several lookups ahead of its use.
class UserIDTable {
 public:
  struct Entry {
    std::uint64_t key;
    const char* text;  // the record's own ID text
    std::size_t length;
    const VarObsInfo* info;

    std::string_view Text() const { return {text, length}; }
    bool Matches(std::uint64_t k, std::string_view id) const {
      return key == k && length == id.size() && VxStdString::CompareNoCase(Text(), id) == 0;
    }
  };

  using Table = std::vector<Entry, TableAllocator<Entry>>;

  // The case-insensitive hash of `id`, mixed: its top bits, which choose the directory
  // bucket, barely change with the last bytes of an ID, and IDs such as Obs1001, Obs1002,
  // ... differ just there. The mix is a bijection, so equal IDs still get equal keys and
  // different hashes different keys.
  static std::uint64_t Key(std::string_view id) {
    std::uint64_t k = static_cast<std::uint64_t>(VxStdString::ComputeCompareNoCaseHash(id));
    k ^= k >> 33;
    k *= 0xff51afd7ed558ccdULL;
    k ^= k >> 33;
    k *= 0xc4ceb9fe1a85ec53ULL;
    k ^= k >> 33;
    return k;
  }

  // Replaces the content with `entries`, in any order.
  void Assign(Table entries);
  void Add(const Entry& entry);
  // The entry of `id` with the smallest unique ID, or null.
  const Entry* Find(std::uint64_t key, std::string_view id) const;
  // The records of `count` IDs.
  void FindMany(const std::string* ids, std::size_t count, const VarObsInfo** infos) const;

  std::size_t size() const { return mSorted.size() + mRecent.size(); }
  bool unique = true;

 private:
  // Beyond this many directory bits buckets simply hold more than one entry.
  static constexpr unsigned kMaxBits = 24;
  // The recent list is merged once it is as long as the table, and at least this long.
  static constexpr std::size_t kMinRecent = 1024;
  // Buckets up to this size are ordered by insertion.
  static constexpr std::size_t kSmallBucket = 16;

  static bool Before(const Entry& a, const Entry& b);
  std::size_t Bucket(std::uint64_t key) const { return static_cast<std::size_t>(key >> mShift); }
  // The first entry of the table with `key` or a larger one, within the bucket of `key`.
  const Entry* LowerBound(std::uint64_t key, const Entry* first, const Entry* last) const;
  // The first entry from `e` on that has `key` and the text `id`, or null.
  const Entry* MatchFrom(const Entry* e, const Entry* last, std::uint64_t key,
                         std::string_view id) const;
  const Entry* FindRecent(std::uint64_t key, std::string_view id) const;
  // Of a match in the table and whatever the recent list holds, the smallest unique ID.
  const Entry* WithRecent(const Entry* sorted, std::uint64_t key, std::string_view id) const;
  void IndexRecent(std::size_t position);
  void Merge();

  Table mSorted;
  // mStarts[b] is the first position in mSorted of the keys whose top bits are b.
  std::vector<std::uint32_t, TableAllocator<std::uint32_t>> mStarts;
  unsigned mShift = 63;
  std::vector<Entry> mRecent;
  // Open addressing over mRecent: position + 1, 0 for free.
  std::vector<std::uint32_t> mSlots;
};

bool UserIDTable::Before(const Entry& a, const Entry& b) {
  if (a.key != b.key) return a.key < b.key;
  const int order = VxStdString::CompareNoCase(a.Text(), b.Text());
  if (order != 0) return order < 0;
  return a.info->GetUniqueID() < b.info->GetUniqueID();
}

void UserIDTable::Assign(Table entries) {
  mRecent.clear();
  mSlots.clear();
  const std::size_t count = entries.size();
  if (count == 0) {
    mSorted.clear();
    mStarts.clear();
    return;
  }
  unsigned bits = 1;
  while (bits < kMaxBits && (std::size_t{1} << bits) < count) ++bits;
  mShift = 64 - bits;
  const std::size_t buckets = std::size_t{1} << bits;

  // A counting sort by the top bits of the key; it leaves mStarts as the directory.
  {
    constexpr std::size_t kAhead = 16;
    mStarts.assign(buckets + 1, 0);
    for (std::size_t i = 0; i < count; ++i) {
      if (i + kAhead < count) Prefetch(&mStarts[Bucket(entries[i + kAhead].key)]);
      ++mStarts[Bucket(entries[i].key)];
    }
    std::uint32_t position = 0;
    for (std::size_t b = 0; b < buckets; ++b) {
      const std::uint32_t n = mStarts[b];
      mStarts[b] = position;
      position += n;
    }
    mSorted.resize(count);
    for (std::size_t i = 0; i < count; ++i) {
      if (i + kAhead < count) {
        Prefetch(&mStarts[Bucket(entries[i + kAhead].key)]);
        if (i + kAhead / 2 < count) {
          Prefetch(&mSorted[mStarts[Bucket(entries[i + kAhead / 2].key)]]);
        }
      }
      mSorted[mStarts[Bucket(entries[i].key)]++] = entries[i];
    }
    // Each start has moved to the end of its bucket, which is the start of the next one.
    std::copy_backward(mStarts.begin(), mStarts.begin() + static_cast<std::ptrdiff_t>(buckets),
                       mStarts.end());
    mStarts[0] = 0;
    entries = Table();
  }

  // Buckets hold an entry or two: one pass of insertion sort orders each by the full key
  // (entries of different buckets are in order already), and repeated IDs end up side by side.
  // A crowded bucket (many IDs with one hash) is sorted as a whole instead.
  Entry* const table = mSorted.data();
  for (std::size_t i = 1; i < count; ++i) {
    if (table[i - 1].key < table[i].key) continue;
    const std::size_t bucket = Bucket(table[i].key);
    if (mStarts[bucket + 1] - mStarts[bucket] > kSmallBucket) {
      std::sort(table + mStarts[bucket], table + mStarts[bucket + 1], Before);
      i = mStarts[bucket + 1] - 1;
      continue;
    }
    const Entry moved = table[i];
    std::size_t j = i;
    for (; j > 0 && Before(moved, table[j - 1]); --j) table[j] = table[j - 1];
    table[j] = moved;
  }
  for (std::size_t i = 1; i < count; ++i) {
    if (table[i].key == table[i - 1].key &&
        table[i].Matches(table[i - 1].key, table[i - 1].Text())) {
      unique = false;
      break;
    }
  }
}

void UserIDTable::Add(const Entry& entry) {
  mRecent.push_back(entry);
  if (mRecent.size() >= std::max(kMinRecent, mSorted.size())) {
    Merge();
    return;
  }
  if (mRecent.size() * 2 > mSlots.size()) {
    // Keep the slots at most half full.
    mSlots.assign(std::max<std::size_t>(64, mSlots.size() * 2), 0);
    for (std::size_t i = 0; i < mRecent.size(); ++i) IndexRecent(i);
  } else {
    IndexRecent(mRecent.size() - 1);
  }
}

void UserIDTable::IndexRecent(std::size_t position) {
  const std::size_t mask = mSlots.size() - 1;
  std::size_t slot = mRecent[position].key & mask;
  while (mSlots[slot] != 0) slot = (slot + 1) & mask;
  mSlots[slot] = static_cast<std::uint32_t>(position + 1);
}

void UserIDTable::Merge() {
  Table all;
  all.reserve(mSorted.size() + mRecent.size());
  all.insert(all.end(), mSorted.begin(), mSorted.end());
  all.insert(all.end(), mRecent.begin(), mRecent.end());
  Assign(std::move(all));
}

const UserIDTable::Entry* UserIDTable::LowerBound(std::uint64_t key, const Entry* first,
                                                  const Entry* last) const {
  return std::lower_bound(first, last, key,
                          [](const Entry& e, std::uint64_t k) { return e.key < k; });
}

const UserIDTable::Entry* UserIDTable::MatchFrom(const Entry* e, const Entry* last,
                                                 std::uint64_t key, std::string_view id) const {
  // Equal keys with different texts are rare (a hash collision); the first text that matches
  // is the one with the smallest unique ID.
  for (; e != last && e->key == key; ++e) {
    if (e->Matches(key, id)) return e;
  }
  return nullptr;
}

const UserIDTable::Entry* UserIDTable::FindRecent(std::uint64_t key, std::string_view id) const {
  if (mSlots.empty()) return nullptr;
  const std::size_t mask = mSlots.size() - 1;
  const Entry* best = nullptr;
  for (std::size_t slot = key & mask; mSlots[slot] != 0; slot = (slot + 1) & mask) {
    const Entry& e = mRecent[mSlots[slot] - 1];
    if (e.Matches(key, id) && (!best || e.info->GetUniqueID() < best->info->GetUniqueID())) {
      best = &e;
    }
  }
  return best;
}

const UserIDTable::Entry* UserIDTable::WithRecent(const Entry* sorted, std::uint64_t key,
                                                  std::string_view id) const {
  if ((sorted && unique) || mRecent.empty()) return sorted;
  const Entry* recent = FindRecent(key, id);
  if (!sorted) return recent;
  if (!recent) return sorted;
  return recent->info->GetUniqueID() < sorted->info->GetUniqueID() ? recent : sorted;
}

const UserIDTable::Entry* UserIDTable::Find(std::uint64_t key, std::string_view id) const {
  const Entry* sorted = nullptr;
  if (!mSorted.empty()) {
    const std::size_t bucket = Bucket(key);
    const Entry* last = mSorted.data() + mStarts[bucket + 1];
    sorted = MatchFrom(LowerBound(key, mSorted.data() + mStarts[bucket], last), last, key, id);
  }
  return WithRecent(sorted, key, id);
}

void UserIDTable::FindMany(const std::string* ids, std::size_t count,
                           const VarObsInfo** infos) const {
  if (mSorted.empty()) {
    for (std::size_t i = 0; i < count; ++i) {
      const Entry* found = Find(Key(ids[i]), ids[i]);
      infos[i] = found ? found->info : nullptr;
    }
    return;
  }
  // Each ID passes five stages, kStep lookups apart: its text is fetched; its key computed
  // and its directory entry fetched; its table range found and fetched; the first entry with
  // its key found and that record's text fetched; the texts compared.
  constexpr std::size_t kStep = 8;
  constexpr std::size_t kRing = 64;  // a power of two above 4 * kStep
  struct Pending {
    std::uint64_t key;
    const Entry* first;
    const Entry* last;
  };
  Pending pending[kRing];
  const Entry* const table = mSorted.data();
  for (std::size_t i = 0; i < count + 4 * kStep; ++i) {
    if (i < count) Prefetch(ids[i].data());
    if (i >= kStep && i - kStep < count) {
      Pending& p = pending[(i - kStep) % kRing];
      p.key = Key(ids[i - kStep]);
      Prefetch(&mStarts[Bucket(p.key)]);
    }
    if (i >= 2 * kStep && i - 2 * kStep < count) {
      Pending& p = pending[(i - 2 * kStep) % kRing];
      const std::size_t bucket = Bucket(p.key);
      p.first = table + mStarts[bucket];
      p.last = table + mStarts[bucket + 1];
      Prefetch(p.first);
    }
    if (i >= 3 * kStep && i - 3 * kStep < count) {
      Pending& p = pending[(i - 3 * kStep) % kRing];
      p.first = LowerBound(p.key, p.first, p.last);
      if (p.first != p.last) Prefetch(p.first->text);
    }
    if (i >= 4 * kStep) {
      const std::size_t k = i - 4 * kStep;
      const Pending& p = pending[k % kRing];
      const Entry* found = WithRecent(MatchFrom(p.first, p.last, p.key, ids[k]), p.key, ids[k]);
      infos[k] = found ? found->info : nullptr;
    }
  }
}

}  // namespace ncds::detail

using ncds::detail::UserIDTable;

InfosByUserID::InfosByUserID() : mTable(std::make_unique<UserIDTable>()) {}

InfosByUserID::InfosByUserID(const VarObs& owner, int series)
    : mTable(std::make_unique<UserIDTable>()) {
  // The records lie all over the heap, each ID behind two pointers: fetch the record, its ID
  // list and its ID text a few records ahead, so that they arrive while earlier ones are hashed.
  constexpr std::size_t kRecordAhead = 12;
  constexpr std::size_t kListAhead = 8;
  constexpr std::size_t kTextAhead = 4;
  const auto records = owner.begin();
  const std::size_t count = owner.size();
  const std::size_t position = series >= 1 ? static_cast<std::size_t>(series) - 1 : 0;
  UserIDTable::Table entries;
  entries.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    if (i + kRecordAhead < count) ncds::detail::Prefetch(records[i + kRecordAhead].second.get());
    if (i + kListAhead < count) {
      const std::vector<std::string>& ids = records[i + kListAhead].second->GetUserIDs();
      if (position < ids.size()) ncds::detail::Prefetch(&ids[position]);
    }
    if (i + kTextAhead < count) {
      ncds::detail::Prefetch(records[i + kTextAhead].second->GetUserID(series).data());
    }
    const VarObsInfo* info = records[i].second.get();
    const std::string& id = info->GetUserID(series);
    if (id.empty()) continue;
    entries.push_back({UserIDTable::Key(id), id.data(), id.size(), info});
  }
  mTable->Assign(std::move(entries));
}

InfosByUserID::~InfosByUserID() = default;

void InfosByUserID::AddInfo(const VarObsInfo* info, int series) {
  if (!info) return;
  const std::string& id = info->GetUserID(series);
  if (id.empty()) return;
  const std::uint64_t key = UserIDTable::Key(id);
  if (const UserIDTable::Entry* existing = mTable->Find(key, id)) {
    if (existing->info == info) return;  // entered already
    mTable->unique = false;
  }
  mTable->Add({key, id.data(), id.size(), info});
}

const VarObsInfo* InfosByUserID::GetInfo(const char* id) const {
  if (!id) return nullptr;
  const std::string_view text(id, std::strlen(id));
  const UserIDTable::Entry* found = mTable->Find(UserIDTable::Key(text), text);
  return found ? found->info : nullptr;
}

const VarObsInfo* InfosByUserID::GetInfo(const std::string& id) const {
  const UserIDTable::Entry* found = mTable->Find(UserIDTable::Key(id), id);
  return found ? found->info : nullptr;
}

void InfosByUserID::GetInfos(const std::string* ids, std::size_t count,
                             const VarObsInfo** infos) const {
  if (ids && infos) mTable->FindMany(ids, count, infos);
}

std::vector<const VarObsInfo*> InfosByUserID::GetInfos(const std::vector<std::string>& ids) const {
  std::vector<const VarObsInfo*> infos(ids.size());
  GetInfos(ids.data(), ids.size(), infos.data());
  return infos;
}

unsigned long InfosByUserID::GetUniqueID(const char* id) const {
  const VarObsInfo* info = GetInfo(id);
  return info ? info->GetUniqueID() : NCUniqueIDs::kNone;
}

bool InfosByUserID::IsIDUnique() const { return mTable->unique; }

std::size_t InfosByUserID::size() const { return mTable->size(); }
