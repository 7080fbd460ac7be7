#include "ncds/metadata/InfosByUserID.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#ifdef __linux__
#include <sys/mman.h>
#endif

#include "ncds/foundations/VxStdString.h"
#include "ncds/foundations/detail/Prefetch.h"
#include "ncds/metadata/UniqueIDs.h"
#include "ncds/metadata/VarObs.h"
#include "ncds/metadata/VarObsInfo.h"

namespace ncds::detail {
namespace {

// IDs up to this long are kept in the table, folded to lower case, so that a lookup compares
// them without touching the record; longer ones are compared with the record's own text.
constexpr std::size_t kInline = 28;

constexpr std::uint64_t kOnes = 0x0101010101010101ULL;
constexpr std::uint64_t kHighBits = 0x8080808080808080ULL;

// The eight bytes of `word` with the ASCII capitals made small, all at once: a byte gets bit
// 0x20 when it lies in 'A'..'Z' (bytes of 0x80 and above are left alone).
inline std::uint64_t FoldWord(std::uint64_t word) {
  const std::uint64_t low = word & ~kHighBits;
  const std::uint64_t atLeastA = low + kOnes * (0x80 - 'A');
  const std::uint64_t aboveZ = low + kOnes * (0x80 - 'Z' - 1);
  const std::uint64_t capitals = atLeastA & ~aboveZ & ~word & kHighBits;
  return word | (capitals >> 2);
}

inline std::uint64_t Mix(std::uint64_t k) {
  k ^= k >> 33;
  k *= 0xff51afd7ed558ccdULL;
  k ^= k >> 33;
  k *= 0xc4ceb9fe1a85ec53ULL;
  k ^= k >> 33;
  return k;
}

// One ID ready for the table: its key (a hash of the folded text) and, when short, the
// folded text itself.
struct FoldedID {
  std::uint64_t key;
  std::string_view id;
  char text[kInline + 8];  // room for whole words

  explicit FoldedID(std::string_view original) : id(original) {
    std::uint64_t hash = Mix(original.size() ^ 0x9e3779b97f4a7c15ULL);
    for (std::size_t i = 0; i < original.size(); i += 8) {
      const std::size_t n = std::min<std::size_t>(8, original.size() - i);
      std::uint64_t word = 0;
      std::memcpy(&word, original.data() + i, n);
      word = FoldWord(word);
      if (i < kInline) std::memcpy(text + i, &word, 8);
      hash = (hash ^ word) * 0x9fb21c651e98df25ULL;
      hash ^= hash >> 29;
    }
    key = Mix(hash);
  }
  bool IsInline() const { return id.size() <= kInline; }
};

}  // namespace

// An open-addressing table of the IDs entered, probed linearly from a home slot that the
// key's top bits choose. A slot holds the key, the record and the folded ID (or, for long
// IDs, a pointer to the record's own text), so a lookup in a large table costs one cache
// miss rather than one per pointer followed. Large tables ask for huge pages: on a machine
// with 4 KiB pages the page walk of a random access costs as much as the access itself.
class UserIDTable {
 public:
  UserIDTable() = default;
  ~UserIDTable() { Free(mSlots, mCapacity); }
  UserIDTable(const UserIDTable&) = delete;
  UserIDTable& operator=(const UserIDTable&) = delete;

  // Makes room for `count` IDs without growing.
  void Reserve(std::size_t count);
  // Enters `info` under `id` (the record's own ID text). False when `info` was entered
  // already. An ID entered before keeps the record with the smaller unique ID and clears
  // `unique`.
  bool Insert(const FoldedID& id, const VarObsInfo* info);
  const VarObsInfo* Find(const FoldedID& id) const;
  void FindMany(const std::string* ids, std::size_t count, const VarObsInfo** infos) const;

  // Where the probe for `key` starts; prefetching it brings the slot a lookup needs.
  const void* Home(std::uint64_t key) const { return mSlots + HomeIndex(key); }

  std::size_t entered = 0;
  bool unique = true;

 private:
  struct Slot {
    std::uint64_t key;
    const VarObsInfo* info;  // null for an empty slot
    std::uint32_t length;
    char text[kInline];  // the folded ID, or for a long one the address of the record's text
  };
  static_assert(sizeof(Slot) == 48, "a slot is three quarters of a cache line");

  // The table grows when it is this full.
  static constexpr std::size_t kLoadPercent = 60;

  static Slot* Allocate(std::size_t capacity);
  static void Free(Slot* slots, std::size_t capacity);
  std::size_t HomeIndex(std::uint64_t key) const {
    __extension__ using Wide = unsigned __int128;
    return static_cast<std::size_t>((static_cast<Wide>(key) * mCapacity) >> 64);
  }
  static bool Matches(const Slot& slot, const FoldedID& id);
  void Rehash(std::size_t capacity);

  Slot* mSlots = nullptr;
  std::size_t mCapacity = 0;
  std::size_t mUsed = 0;
};

UserIDTable::Slot* UserIDTable::Allocate(std::size_t capacity) {
  // calloc hands out fresh pages for large blocks, which need no clearing.
  void* memory = std::calloc(capacity, sizeof(Slot));
  if (!memory) throw std::bad_alloc();
#ifdef __linux__
  // Advice only, before the pages are first touched; the whole huge pages inside the block.
  constexpr std::uintptr_t kHugePage = std::uintptr_t{2} << 20;
  const auto begin = (reinterpret_cast<std::uintptr_t>(memory) + kHugePage - 1) & ~(kHugePage - 1);
  const auto end =
      (reinterpret_cast<std::uintptr_t>(memory) + capacity * sizeof(Slot)) & ~(kHugePage - 1);
  if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
#endif
  return static_cast<Slot*>(memory);
}

void UserIDTable::Free(Slot* slots, std::size_t) { std::free(slots); }

void UserIDTable::Reserve(std::size_t count) {
  const std::size_t needed = count * 100 / kLoadPercent + 1;
  if (needed > mCapacity) Rehash(std::max<std::size_t>(needed, 16));
}

void UserIDTable::Rehash(std::size_t capacity) {
  Slot* const old = mSlots;
  const std::size_t oldCapacity = mCapacity;
  mSlots = Allocate(capacity);
  mCapacity = capacity;
  // The IDs are distinct already: each goes to the first free slot from its home.
  for (std::size_t i = 0; i < oldCapacity; ++i) {
    if (!old[i].info) continue;
    std::size_t at = HomeIndex(old[i].key);
    while (mSlots[at].info) at = at + 1 == mCapacity ? 0 : at + 1;
    mSlots[at] = old[i];
  }
  Free(old, oldCapacity);
}

bool UserIDTable::Matches(const Slot& slot, const FoldedID& id) {
  if (slot.key != id.key || slot.length != id.id.size()) return false;
  if (id.IsInline()) return std::memcmp(slot.text, id.text, id.id.size()) == 0;
  const char* own = nullptr;
  std::memcpy(&own, slot.text, sizeof own);
  return VxStdString::CompareNoCase(std::string_view(own, slot.length), id.id) == 0;
}

bool UserIDTable::Insert(const FoldedID& id, const VarObsInfo* info) {
  if ((mUsed + 1) * 100 > mCapacity * kLoadPercent)
    Rehash(std::max<std::size_t>(mCapacity * 2, 16));
  std::size_t at = HomeIndex(id.key);
  for (; mSlots[at].info; at = at + 1 == mCapacity ? 0 : at + 1) {
    Slot& slot = mSlots[at];
    if (!Matches(slot, id)) continue;
    if (slot.info == info) return false;
    unique = false;
    ++entered;
    if (info->GetUniqueID() < slot.info->GetUniqueID()) {
      slot.info = info;
      if (!id.IsInline()) {
        const char* own = id.id.data();
        std::memcpy(slot.text, &own, sizeof own);
      }
    }
    return true;
  }
  Slot& slot = mSlots[at];
  slot.key = id.key;
  slot.info = info;
  slot.length = static_cast<std::uint32_t>(id.id.size());
  if (id.IsInline()) {
    std::memcpy(slot.text, id.text, id.id.size());
  } else {
    const char* own = id.id.data();
    std::memcpy(slot.text, &own, sizeof own);
  }
  ++mUsed;
  ++entered;
  return true;
}

const VarObsInfo* UserIDTable::Find(const FoldedID& id) const {
  if (mCapacity == 0) return nullptr;
  for (std::size_t at = HomeIndex(id.key); mSlots[at].info; at = at + 1 == mCapacity ? 0 : at + 1) {
    if (Matches(mSlots[at], id)) return mSlots[at].info;
  }
  return nullptr;
}

void UserIDTable::FindMany(const std::string* ids, std::size_t count,
                           const VarObsInfo** infos) const {
  // Each ID passes three stages, kStep lookups apart: its text is fetched; its key computed
  // and its home slot fetched; the slots probed.
  constexpr std::size_t kStep = 16;
  constexpr std::size_t kRing = 32;  // a power of two at least kStep + 1
  alignas(FoldedID) unsigned char storage[kRing][sizeof(FoldedID)];
  const auto pending = [&storage](std::size_t k) {
    return reinterpret_cast<FoldedID*>(storage[k % kRing]);
  };
  for (std::size_t i = 0; i < count + 2 * kStep; ++i) {
    if (i < count) Prefetch(ids[i].data());
    if (i >= kStep && i - kStep < count) {
      const FoldedID* id = new (pending(i - kStep)) FoldedID(ids[i - kStep]);
      if (mCapacity) Prefetch(Home(id->key));
    }
    if (i >= 2 * kStep) {
      const std::size_t k = i - 2 * kStep;
      infos[k] = Find(*pending(k));
    }
  }
}

}  // namespace ncds::detail

using ncds::detail::UserIDTable;

InfosByUserID::InfosByUserID() : mTable(std::make_unique<UserIDTable>()) {}

InfosByUserID::InfosByUserID(const VarObs& owner, int series)
    : mTable(std::make_unique<UserIDTable>()) {
  using ncds::detail::FoldedID;
  using ncds::detail::Prefetch;
  // The records lie all over the heap, each ID behind two pointers, and each goes to a random
  // slot: fetch the record, its ID list, its ID text and its slot a few records ahead, so that
  // they arrive while earlier ones are entered.
  constexpr std::size_t kRecordAhead = 48;
  constexpr std::size_t kListAhead = 32;
  constexpr std::size_t kTextAhead = 16;
  constexpr std::size_t kSlotAhead = 8;
  constexpr std::size_t kRing = 16;  // a power of two above kSlotAhead
  const auto records = owner.begin();
  const std::size_t count = owner.size();
  const std::size_t position = series >= 1 ? static_cast<std::size_t>(series) - 1 : 0;
  mTable->Reserve(count);
  alignas(FoldedID) unsigned char storage[kRing][sizeof(FoldedID)];
  const VarObsInfo* pendingInfo[kRing] = {};
  const auto pending = [&storage](std::size_t k) {
    return reinterpret_cast<FoldedID*>(storage[k % kRing]);
  };
  for (std::size_t i = 0; i < count + kSlotAhead; ++i) {
    if (i + kRecordAhead < count) Prefetch(records[i + kRecordAhead].second.get());
    if (i + kListAhead < count) {
      const std::vector<std::string>& ids = records[i + kListAhead].second->GetUserIDs();
      if (position < ids.size()) Prefetch(&ids[position]);
    }
    if (i + kTextAhead < count) Prefetch(records[i + kTextAhead].second->GetUserID(series).data());
    if (i < count) {
      const VarObsInfo* info = records[i].second.get();
      const std::string& id = info->GetUserID(series);
      pendingInfo[i % kRing] = id.empty() ? nullptr : info;
      if (!id.empty()) {
        const FoldedID* folded = new (pending(i)) FoldedID(id);
        Prefetch(mTable->Home(folded->key));
      }
    }
    if (i >= kSlotAhead && pendingInfo[(i - kSlotAhead) % kRing]) {
      mTable->Insert(*pending(i - kSlotAhead), pendingInfo[(i - kSlotAhead) % kRing]);
    }
  }
}

InfosByUserID::~InfosByUserID() = default;

void InfosByUserID::AddInfo(const VarObsInfo* info, int series) {
  if (!info) return;
  const std::string& id = info->GetUserID(series);
  if (!id.empty()) mTable->Insert(ncds::detail::FoldedID(id), info);
}

const VarObsInfo* InfosByUserID::GetInfo(const char* id) const {
  return id ? mTable->Find(ncds::detail::FoldedID(std::string_view(id, std::strlen(id)))) : nullptr;
}

const VarObsInfo* InfosByUserID::GetInfo(const std::string& id) const {
  return mTable->Find(ncds::detail::FoldedID(id));
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

std::size_t InfosByUserID::size() const { return mTable->entered; }
