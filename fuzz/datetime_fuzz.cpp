// Feeds arbitrary bytes to the date-time stream reader and, as text, to formatters of every
// parse mode and a few patterns. Any input must give a clean refusal or a value in range that
// writes back identically and whose formatted text parses back to it, as far as the format
// shows it: no crash, no exception, no read past the end of the text.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "ncds/ncds.h"

namespace {

using VxTimeUtl::DateTimeFormatter;
using VxTimeUtl::SimpDateTime;

struct Format {
  DateTimeFormatter formatter;
  std::int64_t resolution;  // microseconds the format shows
  bool showsEveryDate;      // every field of a date-time in range; else only those it parsed
};

const std::vector<Format>& Formats() {
  static const std::vector<Format> formats{
      {DateTimeFormatter(VxTimeUtl::eParseISO8601, ""), 1, true},
      {DateTimeFormatter(VxTimeUtl::eParseDayFirst, ""), 1000, true},
      {DateTimeFormatter(VxTimeUtl::eParseMonthFirst, ""), 1000, true},
      {DateTimeFormatter(VxTimeUtl::eParseFormat, "yyyy-MM-dd HH:mm:ss.ffffff"), 1, true},
      {DateTimeFormatter(VxTimeUtl::eParseFormat, "dd MMM yyyy hh:mm:ss.fff tt"), 1000, true},
      {DateTimeFormatter(VxTimeUtl::eParseFormat, "yyyyMMddHHmmss"), 1000000, true},
      {DateTimeFormatter(VxTimeUtl::eParseFormat, "'Week' d.M.yy H:m"), 60000000, false},
      {DateTimeFormatter(VxTimeUtl::eParseFormat, " h tt "), 3600000000, false},
  };
  return formats;
}

// `t` cut down to what the format shows; the range starts at midnight, so whole minutes and
// hours since its start are whole minutes and hours of the clock.
SimpDateTime Shown(const SimpDateTime& t, std::int64_t resolution) {
  const std::int64_t first = SimpDateTime(1400, 1, 1).GetEpochMicroseconds();
  const std::int64_t us = t.GetEpochMicroseconds();
  return SimpDateTime::FromEpochMicroseconds(us - (us - first) % resolution);
}

// Formats `t`, parses the text back and formats again: the text must parse, to the value
// when the format shows all of it, and format to the same text.
void CheckRoundTrip(const Format& f, const SimpDateTime& t, bool showsAll) {
  const std::string text = f.formatter.Format(t);
  SimpDateTime back;
  if (!f.formatter.Parse(text.c_str(), back)) std::abort();
  if (showsAll && back != Shown(t, f.resolution)) std::abort();
  if (f.formatter.Format(back) != text) std::abort();
}

void ReadStream(const std::string& bytes) {
  std::istringstream is(bytes);
  std::ostringstream os;
  std::size_t read = 0;
  try {
    for (; read + 8 <= bytes.size(); read += 8) {
      SimpDateTime t;
      VxTimeUtl::ReadSimpDateTime(t, is);
      if (!VxTimeUtl::WriteSimpDateTime(t, os)) std::abort();
      if (!t.IsValid()) continue;
      if (SimpDateTime(t.GetPtime()) != t) std::abort();
      for (const Format& f : Formats()) CheckRoundTrip(f, t, f.showsEveryDate);
    }
    SimpDateTime rest;
    if (read < bytes.size()) {
      VxTimeUtl::ReadSimpDateTime(rest, is);  // a short stream must throw
      std::abort();
    }
  } catch (const VxStreamError&) {
  }
  // What was read writes back to the bytes it came from.
  if (bytes.compare(0, os.str().size(), os.str()) != 0) std::abort();
}

void ParseText(const std::uint8_t* data, std::size_t size) {
  // An exact copy with its terminating NUL: reading further trips the address sanitizer.
  std::vector<char> text(data, data + size);
  text.push_back('\0');
  text.shrink_to_fit();
  for (const Format& f : Formats()) {
    SimpDateTime t;
    if (!f.formatter.Parse(text.data(), t)) continue;
    if (!t.IsValid()) std::abort();
    CheckRoundTrip(f, t, true);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ReadStream(std::string(reinterpret_cast<const char*>(data), size));
  ParseText(data, size);
  return 0;
}
