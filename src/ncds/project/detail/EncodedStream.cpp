#include "ncds/project/detail/EncodedStream.h"

#include <libdeflate.h>

#include <ostream>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/ExceptionMessage.h"
#include "ncds/foundations/VStreamBase.h"

namespace ncds::detail {

EncodedStream Encode(const std::function<bool(std::ostream&)>& write, std::size_t blockSize,
                     const std::string& path) {
  EncodedStream encoded{std::make_unique<BlockSink>(blockSize), {}};
  std::ostream os(encoded.blocks.get());
  if (!write(os) || !os) {
    throw NCError(ExceptionMessage::translate("The project could not be written to {1}.") % path);
  }
  StreamFingerprint& print = encoded.fingerprint;
  encoded.blocks->ForEachBlock([&print](const char* data, std::size_t size) {
    print.size += size;
    print.crc = libdeflate_crc32(print.crc, data, size);
    print.adler = libdeflate_adler32(print.adler, data, size);
  });
  return encoded;
}

EncodedStream Encode(const VStreamBase& object, std::size_t blockSize, const std::string& path) {
  return Encode([&object](std::ostream& os) { return static_cast<bool>(os << object); }, blockSize,
                path);
}

EncodedStream Encode(const std::string& bytes, std::size_t blockSize, const std::string& path) {
  return Encode(
      [&bytes](std::ostream& os) {
        return static_cast<bool>(
            os.write(bytes.data(), static_cast<std::streamsize>(bytes.size())));
      },
      blockSize, path);
}

}  // namespace ncds::detail
