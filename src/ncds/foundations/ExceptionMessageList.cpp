#include "ncds/foundations/ExceptionMessageList.h"

ExceptionMessageList::ExceptionMessageList(ExceptionMessage message) {
  mMessages.push_back(std::move(message));
}

ExceptionMessageList& ExceptionMessageList::operator<<(const ExceptionMessage& message) {
  mMessages.push_back(message);
  return *this;
}

ExceptionMessageList& ExceptionMessageList::operator<<(const ExceptionMessageList& other) {
  mMessages.insert(mMessages.end(), other.mMessages.begin(), other.mMessages.end());
  return *this;
}

std::string ExceptionMessageList::str() const { return str(std::locale()); }

std::string ExceptionMessageList::str(const std::locale& locale) const {
  std::string out;
  for (std::size_t i = 0; i < mMessages.size(); ++i) {
    if (i > 0 && !out.empty() && out.back() != '\n') out += '\n';
    out += mMessages[i].str(locale);
  }
  return out;
}
