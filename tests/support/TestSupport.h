#ifndef NCDS_TESTS_SUPPORT_TESTSUPPORT_H
#define NCDS_TESTS_SUPPORT_TESTSUPPORT_H

// Helpers shared by the tests: temporary files and damaged copies of valid streams.

#include <functional>
#include <streambuf>
#include <string>
#include <utility>
#include <vector>

#include "ncds/foundations/NCProgress.h"
#include "ncds/foundations/VStreamBase.h"

namespace ncds::test {

// The folder of the test program (the test build folder). Taken from the running program
// rather than compiled in, so that objects compiled in one clone serve every other.
std::string TestBinaryDir();

// A file path in the test build folder that is removed when the object goes.
class TempFile {
 public:
  explicit TempFile(const std::string& name);
  ~TempFile();
  TempFile(const TempFile&) = delete;
  TempFile& operator=(const TempFile&) = delete;
  const std::string& path() const { return mPath; }

 private:
  std::string mPath;
};

// Calls `check` with damaged copies of `valid`: every truncation (each length from 0 to the
// full size less one) and copies with single bytes flipped, at every position for short
// streams and at `maxFlips` spread positions for long ones.
void ForEachCorruption(const std::string& valid,
                       const std::function<void(const std::string&)>& check,
                       std::size_t maxFlips = 4096);

// A stream that cannot seek, so readers cannot learn how many bytes it still holds.
class NonSeekableBuf : public std::streambuf {
 public:
  explicit NonSeekableBuf(std::string bytes) : mBytes(std::move(bytes)) {
    setg(mBytes.data(), mBytes.data(), mBytes.data() + mBytes.size());
  }

 private:
  std::string mBytes;
};

// The bytes of `object` written through its stream operator.
std::string WriteToString(const VStreamBase& object);
// Reads `object` from `bytes`; true when the read succeeded.
bool ReadFromString(const std::string& bytes, VStreamBase& object);
// The same for damaged bytes, which may also name a record class without a factory: that
// read throws the factory's `Exception`, which counts as a refusal here.
bool ReadDamaged(const std::string& bytes, VStreamBase& object);

// Records the outermost operations reported through `NCProgress` while it lives: it installs
// itself as the sink and puts the previous one back when it goes.
class ProgressRecorder final : public NCProgressSink {
 public:
  struct Operation {
    std::string caption;
    float maximum = 0;
    float last = 0;          // the last value reported
    bool backwards = false;  // whether a value was below the one before
  };

  ProgressRecorder() : mPrevious(NCProgress::SetSink(this)) {}
  ~ProgressRecorder() override { NCProgress::SetSink(mPrevious); }
  ProgressRecorder(const ProgressRecorder&) = delete;
  ProgressRecorder& operator=(const ProgressRecorder&) = delete;

  void Begin(const std::string& caption, float, float maximum, const NCProgressFlags&,
             const std::string&) override {
    if (depth++ == 0) operations.push_back({caption, maximum});
  }
  bool Update(float value) override {
    if (depth == 1) {
      Operation& operation = operations.back();
      operation.backwards = operation.backwards || value < operation.last;
      operation.last = value;
    }
    return true;
  }
  bool Spin() override { return true; }
  void End() override { --depth; }

  std::vector<Operation> operations;
  int depth = 0;  // of the operations running now

 private:
  NCProgressSink* mPrevious;
};

// Flips a byte in chunk `seq` of stream `name` of the project file at `path`, as another
// program would; false when the file has no such chunk.
bool DamageChunk(const std::string& path, const std::string& name, int seq);

}  // namespace ncds::test

#endif  // NCDS_TESTS_SUPPORT_TESTSUPPORT_H
