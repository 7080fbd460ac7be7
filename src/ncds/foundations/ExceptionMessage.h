#ifndef NCDS_FOUNDATIONS_EXCEPTIONMESSAGE_H
#define NCDS_FOUNDATIONS_EXCEPTIONMESSAGE_H

// A user-visible message: a translation key (English text, optionally with a translator
// context) and the arguments for its numbered placeholders "{1}", "{2}", ...
//
// The text is looked up in the gettext domain "ncds" of a locale when the message is shown
// (`str`), so a message built before the application selects a language still comes out in
// that language. Without a catalog for the locale the English text comes out unchanged.
// Build messages with `translate` and a string literal at the call site so that xgettext
// can collect the key. Values are cheap to copy; not synchronised.

#include <locale>
#include <string>
#include <type_traits>
#include <vector>

#include "ncds/ncds_export.h"

class NCDS_EXPORT ExceptionMessage {
 public:
  ExceptionMessage() = default;

  // A message whose text is a translation key.
  static ExceptionMessage translate(const char* text);
  // The same with a note for the translator (never shown), e.g. ("dialog caption", "Merge").
  static ExceptionMessage translate(const char* context, const char* text);
  // A text that is shown as it is (a file name, an operating-system error, ...).
  static ExceptionMessage Verbatim(std::string text);

  // Fills the next placeholder: the first call fills "{1}", the second "{2}", and so on.
  ExceptionMessage& operator%(const char* argument);
  ExceptionMessage& operator%(const std::string& argument);
  template <class Number, class = std::enable_if_t<std::is_arithmetic_v<Number>>>
  ExceptionMessage& operator%(Number value) {
    if constexpr (std::is_integral_v<Number>) {
      return *this % std::to_string(value);
    } else {
      return *this % FormatNumber(static_cast<double>(value), sizeof(Number) == 4 ? 7 : 15);
    }
  }

  // The message in the global locale, or in `locale`, with its placeholders filled.
  std::string str() const;
  std::string str(const std::locale& locale) const;

  const std::string& GetText() const { return mText; }
  const std::string& GetContext() const { return mContext; }
  const std::vector<std::string>& GetArguments() const { return mArguments; }
  bool empty() const { return mText.empty(); }

 private:
  static std::string FormatNumber(double value, int significantDigits);

  std::string mContext;
  std::string mText;
  std::vector<std::string> mArguments;
  bool mTranslate = false;
};

#endif  // NCDS_FOUNDATIONS_EXCEPTIONMESSAGE_H
