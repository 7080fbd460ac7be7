#include "ncds/foundations/OutputStreamDirectory.h"

#include <ostream>
#include <string>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/StreamPrimitives.h"

namespace {
constexpr std::uint16_t kEndMark = 0xFFFF;
}

OutputStreamDirectory::OutputStreamDirectory(std::ostream& os, std::uint16_t numberOfTags)
    : mOs(os), mNumberOfTags(numberOfTags) {
  if (numberOfTags == kEndMark) throw NCInternalError("stream directory with too many tags");
  mSeekable = os.good() && os.tellp() != std::streampos(-1);
  WriteTwoBytes(&mNumberOfTags, 1, mOs);
}

OutputStreamDirectory::~OutputStreamDirectory() { Close(); }

std::ostream& OutputStreamDirectory::GetOutput(std::uint16_t tag) {
  if (mClosed || tag >= mNumberOfTags) {
    throw NCInternalError("stream directory tag " + std::to_string(tag) + " out of range");
  }
  if (tag < 256) {
    std::uint64_t& bits = mWritten[tag / 64];
    const std::uint64_t bit = std::uint64_t{1} << (tag % 64);
    if (bits & bit) throw NCInternalError("stream directory tag " + std::to_string(tag) + " twice");
    bits |= bit;
  }
  EndEntry();
  mTag = tag;
  mInEntry = true;
  if (!mSeekable) {
    if (!mBuffer) mBuffer = std::make_unique<std::ostringstream>();
    mBuffer->str(std::string());
    mBuffer->clear();
    return *mBuffer;
  }
  const std::uint64_t placeholder = 0;
  WriteTwoBytes(&tag, 1, mOs);
  mLengthPos = mOs.tellp();
  WriteEightBytes(&placeholder, 1, mOs);
  mPayloadPos = mOs.tellp();
  return mOs;
}

void OutputStreamDirectory::EndEntry() {
  if (!mInEntry) return;
  mInEntry = false;
  if (!mSeekable) {
    const std::string payload = mBuffer->str();
    const std::uint64_t length = payload.size();
    WriteTwoBytes(&mTag, 1, mOs);
    WriteEightBytes(&length, 1, mOs);
    WriteBytes(payload.data(), payload.size(), mOs);
    return;
  }
  if (!mOs) return;
  const std::streamoff end = mOs.tellp();
  const std::uint64_t length = static_cast<std::uint64_t>(end - mPayloadPos);
  mOs.seekp(mLengthPos);
  WriteEightBytes(&length, 1, mOs);
  mOs.seekp(end);
}

bool OutputStreamDirectory::Close() {
  if (!mClosed) {
    EndEntry();
    WriteTwoBytes(&kEndMark, 1, mOs);
    mClosed = true;
  }
  return static_cast<bool>(mOs);
}
