#include "ncds/dataset/detail/DataSetStreamParts.h"

#include <istream>
#include <limits>
#include <ostream>

#include "ncds/foundations/StreamPrimitives.h"

namespace ncds::detail {

bool WriteUInt32(unsigned long long value, std::ostream& os) {
  if (value > std::numeric_limits<std::uint32_t>::max()) return false;
  const auto narrow = static_cast<std::uint32_t>(value);
  return WriteFourBytes(&narrow, 1, os);
}

std::uint32_t ReadUInt32(std::istream& is) {
  std::uint32_t value = 0;
  ReadFourBytes(&value, 1, is);
  return value;
}

std::uint32_t ReadCount(std::istream& is, std::uint64_t bytesEach) {
  const std::uint32_t count = ReadUInt32(is);
  RequireStreamBytes(is, std::uint64_t{count} * bytesEach);
  return count;
}

bool WriteAliases(const std::vector<int>& aliases, std::ostream& os) {
  return WriteUInt32(aliases.size(), os) && WriteFourBytes(aliases.data(), aliases.size(), os);
}

std::vector<int> ReadAliases(std::istream& is) {
  std::vector<int> aliases(ReadCount(is, 4));
  ReadFourBytes(aliases.data(), aliases.size(), is);
  return aliases;
}

}  // namespace ncds::detail
