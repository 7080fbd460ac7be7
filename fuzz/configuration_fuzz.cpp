// Feeds arbitrary bytes to the XML reader of configuration sections. A document either loads
// or is refused with NCError, leaving the section as it was; what loads must save to a text
// that loads to the same section and saves to the same text again.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "ncds/ncds.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  ConfigurationSection section;
  section.SetString("Before", "kept");
  const ConfigurationSection before(section);
  try {
    section.LoadString(bytes, "fuzz");
  } catch (const NCError&) {
    if (section != before) std::abort();
    return 0;
  }
  const std::string written = section.SaveString();
  ConfigurationSection again;
  again.LoadString(written, "written");  // an exception here aborts the run
  if (again != section || again.SaveString() != written) std::abort();
  // Numbered lookups agree with the order of the subsections.
  for (std::size_t i = 0; i < section.SizeSubSections(); ++i) {
    const std::string& name = section.GetSubSection(i).GetName();
    if (section.CountSubSections(name) == 0 || !section.OpenSubSection(name)) std::abort();
  }
  return 0;
}
