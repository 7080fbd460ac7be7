#include "ncds/foundations/detail/StreamWindow.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace ncds::detail {

namespace {
constexpr std::streamoff kBufferSize = std::streamoff{16} * 1024;
}

void StreamWindow::Attach(std::streambuf* parent, std::streamoff begin, std::streamoff length,
                          int depth) {
  mParent = parent;
  mBegin = begin;
  mLength = length;
  mDepth = depth;
  mBufStart = 0;
  setg(nullptr, nullptr, nullptr);
}

void StreamWindow::AttachMemory(const char* data, std::streamoff length, int depth) {
  mParent = nullptr;
  mBegin = 0;
  mLength = length;
  mDepth = depth;
  mBufStart = 0;
  // The get area is read-only in practice: nothing writes through a read buffer.
  char* bytes = const_cast<char*>(data);
  setg(bytes, bytes, bytes + length);
}

std::pair<const char*, std::streamoff> StreamWindow::Peek(std::streamoff want) {
  const std::streamoff buffered = egptr() - gptr();
  if (buffered < want && buffered < Remaining() && mParent) Refill(Position(), want);
  return {gptr(), egptr() - gptr()};
}

bool StreamWindow::MoveTo(std::streamoff position) {
  if (position < 0 || position > mLength) return false;
  // Inside the buffered bytes only the read pointer moves.
  if (eback() && position >= mBufStart && position <= mBufStart + (egptr() - eback())) {
    setg(eback(), eback() + (position - mBufStart), egptr());
    return true;
  }
  mBufStart = position;
  setg(nullptr, nullptr, nullptr);
  return true;
}

bool StreamWindow::Refill(std::streamoff pos, std::streamoff want) {
  want = std::min(std::max(want, kBufferSize), mLength - pos);
  if (want <= 0 || !mParent) return false;
  if (mParent->pubseekpos(mBegin + pos, std::ios_base::in) != std::streampos(mBegin + pos)) {
    return false;
  }
  if (static_cast<std::streamoff>(mBuffer.size()) < want) mBuffer.resize(want);
  const std::streamsize got = mParent->sgetn(mBuffer.data(), want);
  if (got <= 0) return false;
  mBufStart = pos;
  setg(mBuffer.data(), mBuffer.data(), mBuffer.data() + got);
  return true;
}

StreamWindow::int_type StreamWindow::underflow() {
  if (gptr() < egptr()) return traits_type::to_int_type(*gptr());
  if (!Refill(Position(), kBufferSize)) return traits_type::eof();
  return traits_type::to_int_type(*gptr());
}

std::streamsize StreamWindow::xsgetn(char* s, std::streamsize n) {
  std::streamsize done = 0;
  const std::streamsize buffered = std::min<std::streamsize>(n, egptr() - gptr());
  if (buffered > 0) {
    std::memcpy(s, gptr(), static_cast<std::size_t>(buffered));
    gbump(static_cast<int>(buffered));
    done = buffered;
  }
  std::streamsize rest = std::min<std::streamsize>(n - done, Remaining());
  if (rest <= 0) return done;
  if (rest < kBufferSize) {
    // Small reads refill the buffer.
    while (rest > 0 && underflow() != traits_type::eof()) {
      const std::streamsize chunk = std::min<std::streamsize>(rest, egptr() - gptr());
      std::memcpy(s + done, gptr(), static_cast<std::size_t>(chunk));
      gbump(static_cast<int>(chunk));
      done += chunk;
      rest -= chunk;
    }
    return done;
  }
  // Large reads go straight into the caller's memory.
  const std::streamoff pos = Position();
  if (!mParent ||
      mParent->pubseekpos(mBegin + pos, std::ios_base::in) != std::streampos(mBegin + pos)) {
    return done;
  }
  const std::streamsize got = mParent->sgetn(s + done, rest);
  const std::streamsize advanced = std::max<std::streamsize>(got, 0);
  mBufStart = pos + advanced;
  setg(nullptr, nullptr, nullptr);
  return done + advanced;
}

std::streamsize StreamWindow::showmanyc() {
  const std::streamoff left = Remaining();
  return left > 0 ? static_cast<std::streamsize>(left) : -1;
}

StreamWindow::pos_type StreamWindow::seekoff(off_type off, std::ios_base::seekdir dir,
                                             std::ios_base::openmode which) {
  if (!(which & std::ios_base::in)) return pos_type(off_type(-1));
  std::streamoff base = 0;
  if (dir == std::ios_base::cur) {
    base = Position();
  } else if (dir == std::ios_base::end) {
    base = mLength;
  }
  const std::streamoff target = base + off;
  if (!MoveTo(target)) return pos_type(off_type(-1));
  return pos_type(target);
}

StreamWindow::pos_type StreamWindow::seekpos(pos_type pos, std::ios_base::openmode which) {
  return seekoff(off_type(pos), std::ios_base::beg, which);
}

WindowPool& WindowPool::OfThisThread() {
  // Every directory asks for it: the initial-exec model makes that one load from the thread
  // pointer instead of a call into the dynamic linker.
  static thread_local WindowPool pool __attribute__((tls_model("initial-exec")));
  return pool;
}

std::unique_ptr<WindowStream> WindowPool::Acquire() {
  if (mFree.empty()) return std::make_unique<WindowStream>();
  std::unique_ptr<WindowStream> ws = std::move(mFree.back());
  mFree.pop_back();
  return ws;
}

void WindowPool::Release(std::unique_ptr<WindowStream> ws) {
  if (!ws) return;
  ws->window.Attach(nullptr, 0, 0, 0);
  if (!ws->stream.good()) ws->stream.clear();
  if (mFree.size() < 256) mFree.push_back(std::move(ws));
}

}  // namespace ncds::detail
