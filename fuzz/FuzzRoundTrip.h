#ifndef NCDS_FUZZ_FUZZROUNDTRIP_H
#define NCDS_FUZZ_FUZZROUNDTRIP_H

// What every fuzz target asks of a reader: whatever reads from arbitrary bytes must write, and
// what it writes must read back and write the same bytes again. A broken promise aborts, which
// the fuzzer reports.

#include <cstdlib>
#include <sstream>
#include <string>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/VStreamBase.h"

namespace ncds::fuzz {

inline std::string Bytes(const VStreamBase& object) {
  std::ostringstream os;
  if (!(os << object)) std::abort();
  return os.str();
}

// Reads `object` from arbitrary bytes: false when it does not read, or when the bytes name a
// record class without a factory, which readers report with the factory's `Exception`.
inline bool ReadArbitrary(std::istream& is, VStreamBase& object) {
  try {
    return static_cast<bool>(is >> object);
  } catch (const Exception& e) {
    if (std::string(e.what()).find("factory") == std::string::npos) throw;
    return false;
  }
}

// Reads `object` from `bytes`; when that works, its bytes must survive another round through
// `again`. True when the first read succeeded.
inline bool RoundTrip(const std::string& bytes, VStreamBase& object, VStreamBase& again) {
  std::istringstream is(bytes);
  if (!ReadArbitrary(is, object)) return false;
  const std::string written = Bytes(object);
  std::istringstream back(written);
  if (!(back >> again) || Bytes(again) != written) std::abort();
  return true;
}

}  // namespace ncds::fuzz

#endif  // NCDS_FUZZ_FUZZROUNDTRIP_H
