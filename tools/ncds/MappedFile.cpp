#include "tools/ncds/MappedFile.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ncds/foundations/Exception.h"

namespace ncds::tool {
namespace detail {
namespace {

[[noreturn]] void ThrowUnreadable(const std::string& path, int error) {
  throw NCError(ExceptionMessage::translate("{1}: the file cannot be read ({2}).") % path %
                std::strerror(error));
}

// Closes a descriptor when it goes out of scope.
class Descriptor {
 public:
  explicit Descriptor(int fd) : mFd(fd) {}
  ~Descriptor() {
    if (mFd >= 0) ::close(mFd);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int Get() const { return mFd; }

 private:
  int mFd;
};

}  // namespace
}  // namespace detail

MappedFile::MappedFile(const std::string& path) {
  const detail::Descriptor fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (fd.Get() < 0) detail::ThrowUnreadable(path, errno);
  struct stat status {};
  if (::fstat(fd.Get(), &status) != 0) detail::ThrowUnreadable(path, errno);
  if (S_ISDIR(status.st_mode)) detail::ThrowUnreadable(path, EISDIR);
  if (S_ISREG(status.st_mode) && status.st_size > 0) {
    const auto size = static_cast<std::size_t>(status.st_size);
    void* mapping = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd.Get(), 0);
    if (mapping != MAP_FAILED) {
      // The text is read once from front to back.
      ::madvise(mapping, size, MADV_SEQUENTIAL);
      mMapping = mapping;
      mSize = size;
      return;
    }
  }
  // Not mappable: read it in large blocks.
  constexpr std::size_t kBlock = 1 << 20;
  for (;;) {
    const std::size_t used = mCopy.size();
    mCopy.resize(used + kBlock);
    const ssize_t got = ::read(fd.Get(), mCopy.data() + used, kBlock);
    if (got < 0 && errno == EINTR) {
      mCopy.resize(used);
      continue;
    }
    if (got < 0) detail::ThrowUnreadable(path, errno);
    mCopy.resize(used + static_cast<std::size_t>(got));
    if (got == 0) break;
  }
}

MappedFile::~MappedFile() {
  if (mMapping) ::munmap(mMapping, mSize);
}

std::string_view MappedFile::GetText() const {
  return mMapping ? std::string_view(static_cast<const char*>(mMapping), mSize)
                  : std::string_view(mCopy);
}

}  // namespace ncds::tool
