#ifndef NCDS_FOUNDATIONS_EXCEPTION_H
#define NCDS_FOUNDATIONS_EXCEPTION_H

// The exceptions of the library. All derive from `Exception`, which carries translatable
// messages; `what()` gives them translated in the global locale of the moment of the throw.
//
//   NCError          a refusal of user input or an impossible request, with a severity level
//   NCInternalError  a broken invariant inside the library (a bug, not a user mistake)
//   InvalidArgument  an argument outside its domain
//   VxStreamError    a failure to read or write a stream; stream readers catch it and
//                    answer false, so it does not leave the library through them

#include <exception>
#include <string>

#include "ncds/foundations/ExceptionMessage.h"
#include "ncds/foundations/ExceptionMessageList.h"
#include "ncds/ncds_export.h"

class NCDS_EXPORT Exception : public std::exception {
 public:
  explicit Exception(ExceptionMessage message);
  explicit Exception(ExceptionMessageList messages);
  ~Exception() override;

  const char* what() const noexcept override { return mWhat.c_str(); }
  const ExceptionMessageList& GetMessages() const { return mMessages; }

 private:
  ExceptionMessageList mMessages;
  std::string mWhat;
};

class NCDS_EXPORT NCError : public Exception {
 public:
  // Severity of an error; the library refuses user data at `Error`, and reports data that
  // contradicts itself (a row without its record) at `Inconsistency`.
  enum Level { Information = 0, Warning = 1, Error = 2, Fatal = 3, Inconsistency = 4 };

  explicit NCError(ExceptionMessage message, Level level = Error);
  NCError(ExceptionMessageList messages, Level level);
  ~NCError() override;

  Level GetLevel() const { return mLevel; }

 private:
  Level mLevel;
};

class NCDS_EXPORT NCInternalError : public Exception {
 public:
  explicit NCInternalError(const std::string& what);
  ~NCInternalError() override;
};

class NCDS_EXPORT InvalidArgument : public Exception {
 public:
  explicit InvalidArgument(const std::string& what);
  explicit InvalidArgument(ExceptionMessage message);
  ~InvalidArgument() override;
};

class NCDS_EXPORT VxStreamError : public Exception {
 public:
  explicit VxStreamError(ExceptionMessage message);
  ~VxStreamError() override;
};

#endif  // NCDS_FOUNDATIONS_EXCEPTION_H
