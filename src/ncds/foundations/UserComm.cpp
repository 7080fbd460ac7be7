#include "ncds/foundations/UserComm.h"

#include <atomic>
#include <iostream>

namespace ncds::detail {
namespace {

// Without an application sink: messages go to the standard error stream, questions are
// answered with their default without waiting for input (the library may run unattended).
class DefaultUserComm final : public UserComm {
 public:
  void ShowMessages(const ExceptionMessageList& messages, const std::string& caption) override {
    if (!caption.empty()) std::cerr << caption << ":\n";
    std::cerr << messages.str() << '\n';
  }
  int AskQuestion(const ExceptionMessageList& messages, const std::string& caption,
                  bool defaultYes) override {
    ShowMessages(messages, caption);
    return defaultYes ? kYes : kNo;
  }
};

UserComm* DefaultSink() {
  static DefaultUserComm sink;
  return &sink;
}

// Null stands for the default sink, so that no static initialisation order matters.
std::atomic<UserComm*> gCurrent{nullptr};

}  // namespace
}  // namespace ncds::detail

UserComm::~UserComm() = default;

UserComm* UserComm::GetUserComm() {
  UserComm* sink = ncds::detail::gCurrent.load(std::memory_order_acquire);
  return sink ? sink : ncds::detail::DefaultSink();
}

UserComm* UserComm::SetUserComm(UserComm* sink) {
  UserComm* previous = ncds::detail::gCurrent.exchange(sink, std::memory_order_acq_rel);
  return previous ? previous : ncds::detail::DefaultSink();
}

MuteUserComm::~MuteUserComm() = default;

void MuteUserComm::ShowMessages(const ExceptionMessageList&, const std::string&) {}

int MuteUserComm::AskQuestion(const ExceptionMessageList&, const std::string&, bool) {
  return kYes;
}

ScopedUserComm::ScopedUserComm(UserComm* sink) : mPrevious(UserComm::SetUserComm(sink)) {}

ScopedUserComm::~ScopedUserComm() { UserComm::SetUserComm(mPrevious); }
