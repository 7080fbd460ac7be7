#include "ncds/foundations/OutputStreamDirectory.h"

#include <algorithm>
#include <ostream>
#include <string>

#include "ncds/foundations/Exception.h"
#include "ncds/foundations/StreamPrimitives.h"
#include "ncds/foundations/detail/DirectoryLayout.h"
#include "ncds/foundations/detail/EntryStreamBuf.h"

OutputStreamDirectory::OutputStreamDirectory(std::ostream& os, std::uint16_t numberOfTags)
    : mOs(os), mNumberOfTags(numberOfTags) {
  if (auto* entry = dynamic_cast<ncds::detail::EntryStreamBuf*>(os.rdbuf())) {
    mRootSeekable = entry->RootSeekable();
  } else {
    mRootSeekable = os.good() && os.tellp() != std::streampos(-1);
  }
  WriteVarint(mNumberOfTags, mOs);
}

OutputStreamDirectory::~OutputStreamDirectory() { Close(); }

std::ostream& OutputStreamDirectory::GetOutput(std::uint16_t tag) {
  if (mClosed || mWritten.size() >= mNumberOfTags) {
    throw NCInternalError("stream directory tag " + std::to_string(tag) + " beyond " +
                          std::to_string(mNumberOfTags) + " entries");
  }
  if (std::find(mWritten.begin(), mWritten.end(), tag) != mWritten.end()) {
    throw NCInternalError("stream directory tag " + std::to_string(tag) + " twice");
  }
  mWritten.push_back(tag);
  EndEntry();
  mEntry = ncds::detail::AcquireEntryStream();
  mEntry->buf.Begin(mOs.good() ? mOs.rdbuf() : nullptr, tag, mRootSeekable);
  return mEntry->stream;
}

void OutputStreamDirectory::EndEntry() {
  if (!mEntry) return;
  const bool ok = mEntry->stream.good() && mEntry->buf.End();
  if (!ok) mOs.setstate(std::ios_base::badbit);
  ncds::detail::ReleaseEntryStream(std::move(mEntry));
}

bool OutputStreamDirectory::Close() {
  if (!mClosed) {
    EndEntry();
    WriteVarint(ncds::detail::kDirectoryEndKey, mOs);
    mClosed = true;
  }
  return static_cast<bool>(mOs);
}
