// Feeds arbitrary bytes to the project file reader as the content of a project file: opening
// it and loading every dataset it lists must answer with errors, never crash or hang. The same
// bytes go to the decoder of the stored observation records, whose streams the file guards
// with checksums a mutation rarely keeps intact.

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "ncds/ncds.h"
#include "ncds/project/detail/ObservationBlocks.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  {
    const char* bytes = reinterpret_cast<const char*>(data);
    std::vector<std::unique_ptr<ObservationInfo>> records;
    ncds::detail::DecodeObservationBlock(bytes, size, size > 0 ? data[0] % 4 : 0, 4, records);
    ncds::detail::ObservationBlockList list;
    ncds::detail::DecodeObservationBlockList(std::string(bytes, size), list);
  }
  static const std::string path = "/tmp/ncds_fuzz_project_" + std::to_string(getpid());
  {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  }
  try {
    const auto project = NCProjectFile::Open(path, false);
    for (const int number : project->GetDataSetNumbers()) {
      try {
        project->LoadDataSet(number);
      } catch (const NCError&) {
      }
    }
  } catch (const NCError&) {
  } catch (const Exception& e) {
    // Metadata naming a record class without a factory is reported with that message.
    if (std::string(e.what()).find("factory") == std::string::npos) throw;
  }
  std::remove((path + "-journal").c_str());
  std::remove(path.c_str());
  return 0;
}
