// Feeds arbitrary bytes to the reader of the trim records of datasets. Whatever reads must
// write and read back to the same bytes: no crash, no hang, no allocation beyond what the
// input's size justifies. A record that reads is also searched: every value finds itself or a
// smaller value within tolerance, and the search near a value agrees with a scan of the whole
// set from its smallest value up.

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <sstream>
#include <string>

#include "FuzzRoundTrip.h"
#include "ncds/ncds.h"

namespace {

using ncds::fuzz::Bytes;

// The first trim value `value` matches, scanning from the smallest up.
bool ScanForMatch(const TrimdVarStruct& record, float value, float& match) {
  for (const float t : record.GetTrimValues()) {
    if (TrimdVarStruct::ValuesMatch(t, value)) {
      match = t;
      return true;
    }
  }
  return false;
}

void CheckSearch(const TrimdVarStruct& record, float value) {
  float expected = 0.0F;
  float found = 0.0F;
  const bool matches = ScanForMatch(record, value, expected);
  if (record.FindTrimValue(value, found) != matches) std::abort();
  if (matches && !(found == expected)) std::abort();
}

void TrimRecord(const std::string& bytes) {
  TrimdVarStruct record;
  std::istringstream is(bytes);
  if (!(is >> record)) return;
  const std::string written = Bytes(record);
  TrimdVarStruct again;
  std::istringstream back(written);
  if (!(back >> again) || again != record || Bytes(again) != written) std::abort();

  // Searching is linear in the scan below: keep it to sets a fuzzer input makes quickly.
  if (record.GetTrimValues().size() > 256) return;
  for (const float t : record.GetTrimValues()) {
    if (std::isnan(t)) std::abort();
    float match = 0.0F;
    if (!record.FindTrimValue(t, match) || match > t) std::abort();
    CheckSearch(record, t);
    CheckSearch(record, std::nextafter(t, 0.0F));
    CheckSearch(record, t * 1.00007F);
    CheckSearch(record, t * 0.99993F);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  TrimRecord(bytes);
  return 0;
}
