#ifndef NCDS_FOUNDATIONS_EXCEPTIONMESSAGELIST_H
#define NCDS_FOUNDATIONS_EXCEPTIONMESSAGELIST_H

// An ordered list of messages collected before they are shown at once (a log, or the lines of
// a question). Each message is translated when the list is shown.

#include <locale>
#include <string>
#include <vector>

#include "ncds/foundations/ExceptionMessage.h"
#include "ncds/ncds_export.h"

class NCDS_EXPORT ExceptionMessageList {
 public:
  ExceptionMessageList() = default;
  explicit ExceptionMessageList(ExceptionMessage message);

  ExceptionMessageList& operator<<(const ExceptionMessage& message);
  ExceptionMessageList& operator<<(const ExceptionMessageList& other);

  // The messages one after another; a message that does not end in a line break is
  // separated from the next by one.
  std::string str() const;
  std::string str(const std::locale& locale) const;

  const std::vector<ExceptionMessage>& GetMessages() const { return mMessages; }
  std::size_t size() const { return mMessages.size(); }
  bool empty() const { return mMessages.empty(); }
  void clear() { mMessages.clear(); }

 private:
  std::vector<ExceptionMessage> mMessages;
};

#endif  // NCDS_FOUNDATIONS_EXCEPTIONMESSAGELIST_H
