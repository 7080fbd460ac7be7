#ifndef NCDS_FOUNDATIONS_USERCOMM_H
#define NCDS_FOUNDATIONS_USERCOMM_H

// The process-wide sink through which the library shows messages and asks the user questions.
// The application installs its own sink (a dialog box, a log window) with `SetUserComm` and
// keeps ownership of it; the library only borrows the current one for the duration of a call.
//
// `GetUserComm` never returns null: without an installed sink a default one writes messages
// to std::cerr and answers every question with its default. The current sink is one process-
// wide pointer, read and swapped atomically but without a lock: swap it only on the thread
// that runs the library's operations, and keep a sink alive for as long as it is installed.

#include <string>

#include "ncds/foundations/ExceptionMessageList.h"
#include "ncds/ncds_export.h"

class NCDS_EXPORT UserComm {
 public:
  // The answer to `AskQuestion` that lets an operation go on; anything else stops it.
  static constexpr int kYes = 1;
  static constexpr int kNo = 0;

  virtual ~UserComm();

  // Shows `messages` (translated when shown) under `caption`, an already translated text.
  virtual void ShowMessages(const ExceptionMessageList& messages, const std::string& caption) = 0;

  // Puts the question in `messages` to the user; `defaultYes` tells which answer is the
  // default. Returns kYes (1) to go on, any other value to stop.
  virtual int AskQuestion(const ExceptionMessageList& messages, const std::string& caption,
                          bool defaultYes) = 0;

  // The current sink; never null.
  static UserComm* GetUserComm();

  // Installs `sink` (nullptr installs the default sink again) and returns the sink that was
  // current before, never null, so that the caller can put it back.
  static UserComm* SetUserComm(UserComm* sink);

 protected:
  UserComm() = default;
  UserComm(const UserComm&) = default;
  UserComm& operator=(const UserComm&) = default;
};

// A sink that shows nothing and answers every question with kYes, for operations that must not
// prompt: a change check made under it goes ahead without asking. Stateless; one object may be
// shared by any number of guards.
class NCDS_EXPORT MuteUserComm : public UserComm {
 public:
  MuteUserComm() = default;
  ~MuteUserComm() override;

  void ShowMessages(const ExceptionMessageList& messages, const std::string& caption) override;
  int AskQuestion(const ExceptionMessageList& messages, const std::string& caption,
                  bool defaultYes) override;
};

// Installs a sink for the lifetime of the guard and puts the previous one back in its
// destructor, also when an exception leaves the scope. The guard does not own the sink, which
// must outlive it. Guards nest; destroy them in reverse order of creation (as scopes do).
class NCDS_EXPORT ScopedUserComm {
 public:
  // `sink` may be nullptr, which installs the default sink for the scope.
  explicit ScopedUserComm(UserComm* sink);
  ~ScopedUserComm();

  ScopedUserComm(const ScopedUserComm&) = delete;
  ScopedUserComm& operator=(const ScopedUserComm&) = delete;

  // The sink that was current when the guard was made, and that the destructor restores.
  UserComm* GetPrevious() const { return mPrevious; }

 private:
  UserComm* mPrevious;
};

#endif  // NCDS_FOUNDATIONS_USERCOMM_H
