#include "ncds/foundations/ExceptionMessage.h"

#include <boost/locale/message.hpp>
#include <cstdio>

namespace {

constexpr const char* kDomain = "ncds";

// Replaces each "{N}" whose N names an argument; anything else stays as it is.
std::string FillPlaceholders(const std::string& text, const std::vector<std::string>& args) {
  if (args.empty()) return text;
  std::string out;
  out.reserve(text.size() + 16 * args.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '{') {
      std::size_t j = i + 1;
      std::size_t index = 0;
      while (j < text.size() && j < i + 4 && text[j] >= '0' && text[j] <= '9') {
        index = index * 10 + static_cast<std::size_t>(text[j] - '0');
        ++j;
      }
      if (j > i + 1 && j < text.size() && text[j] == '}' && index >= 1 && index <= args.size()) {
        out += args[index - 1];
        i = j;
        continue;
      }
    }
    out += text[i];
  }
  return out;
}

}  // namespace

ExceptionMessage ExceptionMessage::translate(const char* text) {
  ExceptionMessage m;
  m.mText = text ? text : "";
  m.mTranslate = true;
  return m;
}

ExceptionMessage ExceptionMessage::translate(const char* context, const char* text) {
  ExceptionMessage m = translate(text);
  m.mContext = context ? context : "";
  return m;
}

ExceptionMessage ExceptionMessage::Verbatim(std::string text) {
  ExceptionMessage m;
  m.mText = std::move(text);
  return m;
}

ExceptionMessage& ExceptionMessage::operator%(const char* argument) {
  mArguments.emplace_back(argument ? argument : "");
  return *this;
}

ExceptionMessage& ExceptionMessage::operator%(const std::string& argument) {
  mArguments.push_back(argument);
  return *this;
}

std::string ExceptionMessage::FormatNumber(double value, int significantDigits) {
  char buf[40];
  std::snprintf(buf, sizeof buf, "%.*g", significantDigits, value);
  return buf;
}

std::string ExceptionMessage::str() const { return str(std::locale()); }

std::string ExceptionMessage::str(const std::locale& locale) const {
  if (!mTranslate || !std::has_facet<boost::locale::message_format<char>>(locale)) {
    return FillPlaceholders(mText, mArguments);
  }
  const std::string translated =
      mContext.empty()
          ? boost::locale::translate(mText.c_str()).str(locale, kDomain)
          : boost::locale::translate(mContext.c_str(), mText.c_str()).str(locale, kDomain);
  return FillPlaceholders(translated, mArguments);
}
