#include "support/TestSupport.h"

#include "ncds/foundations/Exception.h"

#include <sqlite3.h>

#include <cstdint>
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

// Flips a byte in the middle of chunk `seq` of stream `name`, as another program would.
bool DamageChunk(const std::string& path, const std::string& name, int seq) {
  sqlite3* db = nullptr;
  bool done = false;
  if (sqlite3_open(path.c_str(), &db) == SQLITE_OK) {
    sqlite3_stmt* read = nullptr;
    sqlite3_prepare_v2(db,
                       "SELECT b.id, b.data FROM ncds_chunk c JOIN ncds_blob b ON b.id = c.blob "
                       "WHERE c.stream = ? AND c.seq = ?",
                       -1, &read, nullptr);
    sqlite3_bind_text(read, 1, name.c_str(), -1, SQLITE_TRANSIENT);
    sqlite3_bind_int(read, 2, seq);
    if (sqlite3_step(read) == SQLITE_ROW && sqlite3_column_bytes(read, 1) > 0) {
      const std::int64_t id = sqlite3_column_int64(read, 0);
      std::string bytes(static_cast<const char*>(sqlite3_column_blob(read, 1)),
                        static_cast<std::size_t>(sqlite3_column_bytes(read, 1)));
      bytes[bytes.size() / 2] = static_cast<char>(bytes[bytes.size() / 2] ^ 0x20);
      sqlite3_stmt* write = nullptr;
      sqlite3_prepare_v2(db, "UPDATE ncds_blob SET data = ? WHERE id = ?", -1, &write, nullptr);
      sqlite3_bind_blob(write, 1, bytes.data(), static_cast<int>(bytes.size()), SQLITE_TRANSIENT);
      sqlite3_bind_int64(write, 2, id);
      done = sqlite3_step(write) == SQLITE_DONE;
      sqlite3_finalize(write);
    }
    sqlite3_finalize(read);
  }
  sqlite3_close(db);
  return done;
}

}  // namespace ncds::test
