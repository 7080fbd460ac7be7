#include "ncds/foundations/VStreamLight.h"

#include <cstring>
#include <istream>
#include <ostream>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/foundations/detail/ByteReader.h"
#include "ncds/foundations/detail/StreamWindow.h"

bool VStreamLight::WriteMagicStringAndVersionNumber(std::ostream& os, std::uint16_t version,
                                                    const std::string& magic) {
  if (magic.size() > kMaxMagicLength) return false;
  const auto length = static_cast<std::uint8_t>(magic.size());
  return WriteBytes(&length, 1, os) && WriteBytes(magic.data(), magic.size(), os) &&
         WriteTwoBytes(&version, 1, os);
}

bool VStreamLight::CheckMagicStringAndVersionNumber(std::istream& is, std::uint16_t& version,
                                                    const std::string& magic) {
  // Inside a window the whole header is usually buffered: compare it in place.
  if (auto* window = ncds::detail::AsWindow(is.rdbuf()); window && is.good()) {
    const auto headerLength = static_cast<std::streamoff>(magic.size() + 3);
    const auto [data, available] = window->Peek(headerLength);
    if (available >= headerLength) {
      ncds::detail::ByteReader header(data, static_cast<std::size_t>(headerLength));
      if (!header.Magic(magic, version)) return false;
      window->Skip(headerLength);
      return true;
    }
  }
  try {
    std::uint8_t length = 0;
    ReadBytes(&length, 1, is);
    if (length != magic.size()) return false;
    char stored[kMaxMagicLength];
    ReadBytes(stored, length, is);
    if (std::memcmp(stored, magic.data(), length) != 0) return false;
    std::uint16_t stored_version = 0;
    ReadTwoBytes(&stored_version, 1, is);
    version = stored_version;
    return true;
  } catch (const VxStreamError&) {
    return false;
  }
}
