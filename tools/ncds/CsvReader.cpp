#include "tools/ncds/CsvReader.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "ncds/foundations/Exception.h"

namespace ncds::tool {
namespace detail {
namespace {

constexpr char kQuote = '"';
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

// The line breaks in [begin, end): LF, CRLF and a lone CR count one each.
std::size_t CountLineBreaks(const char* begin, const char* end) {
  std::size_t count = 0;
  for (const char* p = begin; p < end; ++p) {
    if (*p == '\n' || (*p == '\r' && (p + 1 == end || p[1] != '\n'))) ++count;
  }
  return count;
}

}  // namespace
}  // namespace detail

void CsvRow::Clear() {
  mFields.clear();
  mLines.clear();
  mScratch.clear();
  mEscaped.clear();
}

CsvReader::CsvReader(std::string_view text, std::string sourceName, char separator)
    : mBegin(text.data()),
      mPos(text.data()),
      mEnd(text.data() + text.size()),
      mSourceName(std::move(sourceName)),
      mSeparator(separator) {
  if (separator == detail::kQuote || separator == '\r' || separator == '\n') {
    throw InvalidArgument("CsvReader: a quote or a line break cannot separate fields");
  }
  if (text.substr(0, detail::kByteOrderMark.size()) == detail::kByteOrderMark) {
    mPos += detail::kByteOrderMark.size();
  }
  std::memset(mStops, separator, 16);
  std::memset(mStops + 16, '\r', 16);
  std::memset(mStops + 32, '\n', 16);
  mEndsField[static_cast<unsigned char>(separator)] = true;
  mEndsField[static_cast<unsigned char>('\r')] = true;
  mEndsField[static_cast<unsigned char>('\n')] = true;
}

bool CsvReader::ReadRow(CsvRow& row) {
  row.Clear();
  const char* p = mPos;
  // Lines without any character are no rows.
  while (p < mEnd && (*p == '\n' || *p == '\r')) {
    if (*p == '\r' && p + 1 < mEnd && p[1] == '\n') ++p;
    ++p;
    ++mLine;
  }
  if (p == mEnd) {
    mPos = p;
    return false;
  }
  row.mLine = mLine;
  for (;;) {
    if (mLine != row.mLine && row.mLines.empty()) row.mLines.assign(row.mFields.size(), row.mLine);
    if (!row.mLines.empty()) row.mLines.push_back(mLine);
    // Here p < mEnd: a separator at the end of the text was handled below.
    p = *p == detail::kQuote ? ReadQuoted(p, row) : ReadUnquoted(p, row);
    if (p == mEnd) break;
    const char c = *p++;
    if (c == mSeparator) {
      // A separator at the very end leaves one more, empty field.
      if (p == mEnd) {
        if (!row.mLines.empty()) row.mLines.push_back(mLine);
        row.mFields.emplace_back();
        break;
      }
      continue;
    }
    if (c == '\r' && p < mEnd && *p == '\n') ++p;
    ++mLine;
    break;
  }
  mPos = p;
  for (const auto& [field, place] : row.mEscaped) {
    row.mFields[field] = std::string_view(row.mScratch).substr(place.first, place.second);
  }
  if (mWidth == 0) {
    mWidth = row.size();
  } else if (row.size() != mWidth) {
    throw NCError(ExceptionMessage::translate(
                      "{1}, line {2}: the row has {3} fields where the first row has {4}.") %
                  mSourceName % row.GetLine(0) % row.size() % mWidth);
  }
  return true;
}

const char* CsvReader::ReadUnquoted(const char* p, CsvRow& row) {
  const char* start = p;  // of the field being read
  // Ends `start`'s field at `stop` and tells whether the scan goes on with the next field:
  // only after a separator that is followed by a field that is not quoted.
  const auto endField = [&](const char* stop) {
    row.mFields.emplace_back(start, static_cast<std::size_t>(stop - start));
    if (*stop != mSeparator || stop + 1 == mEnd || stop[1] == detail::kQuote) return false;
    start = stop + 1;
    if (!row.mLines.empty()) row.mLines.push_back(mLine);
    return true;
  };
#if defined(__SSE2__)
  // Sixteen bytes at a time: a bit for every separator, CR and LF, taken lowest first.
  const __m128i separators = _mm_load_si128(reinterpret_cast<const __m128i*>(mStops));
  const __m128i returns = _mm_load_si128(reinterpret_cast<const __m128i*>(mStops + 16));
  const __m128i newlines = _mm_load_si128(reinterpret_cast<const __m128i*>(mStops + 32));
  for (; mEnd - p >= 16; p += 16) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
    const __m128i stops =
        _mm_or_si128(_mm_cmpeq_epi8(block, separators),
                     _mm_or_si128(_mm_cmpeq_epi8(block, returns), _mm_cmpeq_epi8(block, newlines)));
    for (auto mask = static_cast<unsigned>(_mm_movemask_epi8(stops)); mask != 0; mask &= mask - 1) {
      const char* stop = p + __builtin_ctz(mask);
      if (!endField(stop)) return stop;
    }
  }
#endif
  for (; p < mEnd; ++p) {
    if (mEndsField[static_cast<unsigned char>(*p)] && !endField(p)) return p;
  }
  row.mFields.emplace_back(start, static_cast<std::size_t>(mEnd - start));
  return mEnd;
}

const char* CsvReader::ReadQuoted(const char* p, CsvRow& row) {
  const std::size_t column = row.mFields.size() + 1;
  const std::size_t line = mLine;
  const char* content = p + 1;
  const char* run = content;  // the part not yet copied when the field has doubled quotes
  bool escaped = false;
  std::size_t offset = 0;
  for (;;) {
    const auto* quote = static_cast<const char*>(
        std::memchr(run, detail::kQuote, static_cast<std::size_t>(mEnd - run)));
    if (!quote) {
      throw NCError(
          ExceptionMessage::translate("{1}, line {2}, column {3}: a quoted field is not closed.") %
          mSourceName % line % column);
    }
    if (quote + 1 < mEnd && quote[1] == detail::kQuote) {
      if (!escaped) {
        escaped = true;
        offset = row.mScratch.size();
      }
      row.mScratch.append(run, static_cast<std::size_t>(quote + 1 - run));
      run = quote + 2;
      continue;
    }
    mLine += detail::CountLineBreaks(content, quote);
    if (escaped) {
      row.mScratch.append(run, static_cast<std::size_t>(quote - run));
      row.mEscaped.push_back({row.mFields.size(), {offset, row.mScratch.size() - offset}});
      row.mFields.emplace_back();  // set once the row is complete
    } else {
      row.mFields.emplace_back(content, static_cast<std::size_t>(quote - content));
    }
    p = quote + 1;
    if (p < mEnd && !mEndsField[static_cast<unsigned char>(*p)]) {
      throw NCError(ExceptionMessage::translate(
                        "{1}, line {2}, column {3}: there is text after the closing quote.") %
                    mSourceName % mLine % column);
    }
    return p;
  }
}

}  // namespace ncds::tool
