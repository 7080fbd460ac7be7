// Feeds arbitrary bytes to the stream framework's readers: magic and version headers,
// directories nested inside directories, binary strings and fixed-width values. Any input
// must give clean failures: no crash, no hang, no allocation beyond the input's size.

#include <cstddef>
#include <cstdint>
#include <sstream>
#include <string>

#include "ncds/ncds.h"

namespace {

// Reads every entry of a directory as a nested directory and, failing that, as values.
void Walk(std::istream& is, int budget) {
  InputStreamDirectory dir(is);
  if (!dir.IsValid() || budget <= 0) return;
  for (std::uint16_t tag = 0; tag < dir.GetNumberOfTags() && tag < 64; ++tag) {
    std::istream* entry = dir.GetInput(tag);
    if (!entry) continue;
    const std::uint64_t size = StreamRemaining(*entry);
    Walk(*entry, budget - 1);
    entry = dir.GetInput(tag);  // a fresh view of the same entry
    try {
      std::string text;
      ReadBinaryString(text, *entry);
      float values[4];
      ReadFourBytes(values, 4, *entry);
    } catch (const VxStreamError&) {
    }
    (void)size;
  }
  dir.Close();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  {
    std::istringstream is(bytes);
    std::uint16_t version = 0;
    if (VStreamLight::CheckMagicStringAndVersionNumber(is, version, "FUZZ")) Walk(is, 16);
  }
  {
    std::istringstream is(bytes);
    Walk(is, 16);
  }
  return 0;
}
