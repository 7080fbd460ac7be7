#include "support/TestSupport.h"

#include "ncds/foundations/Exception.h"

#include <cstdio>
#include <filesystem>
#include <sstream>

namespace ncds::test {

std::string TestBinaryDir() {
  static const std::string dir = [] {
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::string(".") : self.parent_path().string();
  }();
  return dir;
}

TempFile::TempFile(const std::string& name) : mPath(TestBinaryDir() + "/tmp_" + name) {
  std::remove(mPath.c_str());
}

TempFile::~TempFile() { std::remove(mPath.c_str()); }

void ForEachCorruption(const std::string& valid,
                       const std::function<void(const std::string&)>& check, std::size_t maxFlips) {
  for (std::size_t length = 0; length < valid.size(); ++length) check(valid.substr(0, length));
  if (valid.empty()) return;
  const std::size_t step = valid.size() <= maxFlips ? 1 : valid.size() / maxFlips;
  static const unsigned char kMasks[] = {0xFF, 0x01, 0x80};
  std::size_t round = 0;
  for (std::size_t pos = 0; pos < valid.size(); pos += step, ++round) {
    std::string damaged = valid;
    damaged[pos] = static_cast<char>(static_cast<unsigned char>(damaged[pos]) ^ kMasks[round % 3]);
    check(damaged);
  }
}

bool ReadDamaged(const std::string& bytes, VStreamBase& object) {
  try {
    return ReadFromString(bytes, object);
  } catch (const Exception& e) {
    if (std::string(e.what()).find("factory") == std::string::npos) throw;
    return false;
  }
}

std::string WriteToString(const VStreamBase& object) {
  std::stringstream stream;
  stream << object;
  return stream.good() ? stream.str() : std::string();
}

bool ReadFromString(const std::string& bytes, VStreamBase& object) {
  std::istringstream stream(bytes);
  return static_cast<bool>(stream >> object);
}

}  // namespace ncds::test
