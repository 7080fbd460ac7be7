#ifndef NCDS_TOOLS_NCDS_MAPPEDFILE_H
#define NCDS_TOOLS_NCDS_MAPPEDFILE_H

// The whole content of a file as one block of memory: a read-only mapping of a regular file,
// or a copy read in large blocks where mapping is not possible (pipes, special files). The
// object owns the mapping; the text stays valid while it lives. Changing the file while it is
// mapped is undefined, as with any mapping. One thread.

#include <cstddef>
#include <string>
#include <string_view>

namespace ncds::tool {

class MappedFile {
 public:
  // Throws `NCError` ("<path>: the file cannot be read (<reason>).") when the file cannot be
  // opened or read.
  explicit MappedFile(const std::string& path);
  ~MappedFile();
  MappedFile(const MappedFile&) = delete;
  MappedFile& operator=(const MappedFile&) = delete;

  std::string_view GetText() const;

 private:
  void* mMapping = nullptr;
  std::size_t mSize = 0;
  std::string mCopy;  // the content when the file is not mapped
};

}  // namespace ncds::tool

#endif  // NCDS_TOOLS_NCDS_MAPPEDFILE_H
