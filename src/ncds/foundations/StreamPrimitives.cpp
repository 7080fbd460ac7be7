#include "ncds/foundations/StreamPrimitives.h"

#include <algorithm>
#include <istream>
#include <limits>
#include <ostream>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/detail/Coding.h"
#include "ncds/foundations/detail/StreamWindow.h"

namespace {

using ncds::detail::kHostIsLittleEndian;
using ncds::detail::ToLittleEndian;

// Writes and reads go to the stream buffer directly: records are many small fields, and the
// stream's sentry (state check, tied-stream flush) per field costs more than the copy.
void PutBytes(const char* bytes, std::streamsize n, std::ostream& os) {
  std::streambuf* buf = os.rdbuf();
  if (!os.good() || !buf || buf->sputn(bytes, n) != n) os.setstate(std::ios_base::badbit);
}

template <std::size_t width>
bool WriteItems(const void* address, std::size_t count, std::ostream& os) {
  if (count == 0) return static_cast<bool>(os);
  if (!address) return false;
  if constexpr (kHostIsLittleEndian) {
    PutBytes(static_cast<const char*>(address), static_cast<std::streamsize>(width * count), os);
  } else {
    // Convert through a small buffer so that large arrays are not copied whole.
    char buf[4096];
    const std::size_t perChunk = sizeof buf / width;
    const char* src = static_cast<const char*>(address);
    for (std::size_t done = 0; done < count && os;) {
      const std::size_t n = std::min(perChunk, count - done);
      std::copy(src + done * width, src + (done + n) * width, buf);
      ToLittleEndian(buf, width, n);
      PutBytes(buf, static_cast<std::streamsize>(n * width), os);
      done += n;
    }
  }
  return static_cast<bool>(os);
}

template <std::size_t width>
bool ReadItems(void* address, std::size_t count, std::istream& is) {
  if (count == 0) return true;
  if (!address || count > std::numeric_limits<std::size_t>::max() / width) ThrowStreamReadError();
  const auto bytes = static_cast<std::streamsize>(width * count);
  std::streambuf* buf = is.rdbuf();
  if (auto* window = ncds::detail::AsWindow(buf);
      window && is.good() && window->ReadBuffered(address, static_cast<std::size_t>(bytes))) {
    ToLittleEndian(address, width, count);
    return true;
  }
  if (!is.good() || !buf || buf->sgetn(static_cast<char*>(address), bytes) != bytes) {
    is.setstate(std::ios_base::eofbit | std::ios_base::failbit);
    ThrowStreamReadError();
  }
  ToLittleEndian(address, width, count);
  return true;
}

}  // namespace

void ThrowStreamReadError() {
  throw VxStreamError(ExceptionMessage::translate("Error when reading from stream."));
}

bool WriteBytes(const void* address, std::size_t count, std::ostream& os) {
  return WriteItems<1>(address, count, os);
}
bool WriteTwoBytes(const void* address, std::size_t count, std::ostream& os) {
  return WriteItems<2>(address, count, os);
}
bool WriteFourBytes(const void* address, std::size_t count, std::ostream& os) {
  return WriteItems<4>(address, count, os);
}
bool WriteEightBytes(const void* address, std::size_t count, std::ostream& os) {
  return WriteItems<8>(address, count, os);
}

bool ReadBytes(void* address, std::size_t count, std::istream& is) {
  return ReadItems<1>(address, count, is);
}
bool ReadTwoBytes(void* address, std::size_t count, std::istream& is) {
  return ReadItems<2>(address, count, is);
}
bool ReadFourBytes(void* address, std::size_t count, std::istream& is) {
  return ReadItems<4>(address, count, is);
}
bool ReadEightBytes(void* address, std::size_t count, std::istream& is) {
  return ReadItems<8>(address, count, is);
}

bool WriteVarint(std::uint64_t value, std::ostream& os) {
  unsigned char buf[ncds::detail::kMaxVarintLength];
  return WriteBytes(buf, ncds::detail::EncodeVarint(buf, value), os);
}

std::uint64_t ReadVarint(std::istream& is) {
  std::streambuf* buf = is.rdbuf();
  std::uint64_t value = 0;
  for (unsigned shift = 0; buf && is && shift < 64; shift += 7) {
    const auto c = buf->sbumpc();
    if (c == std::char_traits<char>::eof()) break;
    const auto byte = static_cast<std::uint64_t>(static_cast<unsigned char>(c));
    value |= (byte & 0x7F) << shift;
    if (!(byte & 0x80)) return value;
  }
  is.setstate(std::ios_base::failbit);
  ThrowStreamReadError();
}

bool WriteBinaryString(const std::string& text, std::ostream& os) {
  if (text.size() > std::numeric_limits<std::uint32_t>::max()) return false;
  const auto length = static_cast<std::uint32_t>(text.size());
  return WriteFourBytes(&length, 1, os) && WriteBytes(text.data(), text.size(), os);
}

bool ReadBinaryString(std::string& text, std::istream& is) {
  std::uint32_t length = 0;
  ReadFourBytes(&length, 1, is);
  // A short string inside a window is taken from its buffer in one copy.
  if (auto* window = ncds::detail::AsWindow(is.rdbuf()); window && length <= 4096) {
    const auto [data, available] = window->Peek(length);
    if (available >= static_cast<std::streamoff>(length)) {
      // Constructing is quicker than assigning for the short strings that IDs are.
      text = std::string(data, length);
      window->Skip(length);
      return true;
    }
  }
  // Short strings are the rule; only long ones are worth checking against the stream.
  if (length > 256) RequireStreamBytes(is, length);
  text.resize(length);
  return ReadBytes(text.data(), length, is);
}

std::uint64_t StreamRemaining(std::istream& is) {
  if (auto* window = ncds::detail::AsWindow(is.rdbuf())) {
    return static_cast<std::uint64_t>(std::max<std::streamoff>(window->Remaining(), 0));
  }
  std::streambuf* buf = is.rdbuf();
  if (!buf || !is) return 0;
  const std::streampos here = buf->pubseekoff(0, std::ios_base::cur, std::ios_base::in);
  if (here == std::streampos(-1)) return std::numeric_limits<std::uint64_t>::max();
  const std::streampos end = buf->pubseekoff(0, std::ios_base::end, std::ios_base::in);
  buf->pubseekpos(here, std::ios_base::in);
  if (end == std::streampos(-1) || end < here) return std::numeric_limits<std::uint64_t>::max();
  return static_cast<std::uint64_t>(end - here);
}

void RequireStreamBytes(std::istream& is, std::uint64_t bytes) {
  if (StreamRemaining(is) < bytes) {
    is.setstate(std::ios_base::failbit);
    ThrowStreamReadError();
  }
}
