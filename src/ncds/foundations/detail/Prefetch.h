#ifndef NCDS_FOUNDATIONS_DETAIL_PREFETCH_H
#define NCDS_FOUNDATIONS_DETAIL_PREFETCH_H

namespace ncds::detail {

// Asks for the cache line at `address` ahead of its use; any address is fine, even null.
// On x86-64 with GCC this is an instruction of its own: GCC 12 deletes `__builtin_prefetch`
// when it sits on a conditional path, which is where most prefetches are.
inline void Prefetch(const void* address) {
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
  asm volatile("prefetcht0 %0" : : "m"(*static_cast<const char*>(address)));
#elif defined(__GNUC__) || defined(__clang__)
  __builtin_prefetch(address);
#else
  (void)address;
#endif
}

}  // namespace ncds::detail

#endif  // NCDS_FOUNDATIONS_DETAIL_PREFETCH_H
