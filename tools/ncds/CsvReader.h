#ifndef NCDS_TOOLS_NCDS_CSVREADER_H
#define NCDS_TOOLS_NCDS_CSVREADER_H

// Splits CSV text (RFC 4180) into rows of fields. Fields are separated by a chosen character;
// a field that starts with a double quote runs to the matching closing quote, and within it
// separators, line breaks and doubled quotes ("" for ") stand for themselves. Rows end at LF,
// CRLF or a lone CR. Lines with no character at all are skipped; a UTF-8 byte order mark at
// the start is skipped. Every row must have as many fields as the first one.
//
// Errors throw `NCError` with the source name, line and column (the 1-based field number): a
// row with another number of fields, a quoted field that is never closed, and text between a
// closing quote and the end of its field. Any byte sequence gives rows or such an error.
//
// The reader does not own the text. A row hands out views of its fields into the text, or
// into the row itself for quoted fields holding doubled quotes; they stay valid until the row
// is read into again. Reading allocates nothing per field once a row has grown to the width
// of the file. One thread.

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace ncds::tool {

class CsvReader;

// One row of fields, reused from row to row.
class CsvRow {
 public:
  std::size_t size() const { return mFields.size(); }
  bool empty() const { return mFields.empty(); }
  // Field `i` (0-based), as written between separators with the quoting undone.
  std::string_view operator[](std::size_t i) const { return mFields[i]; }
  // The line (1-based) on which field `i` starts; the row starts on GetLine(0).
  std::size_t GetLine(std::size_t i) const { return mLines.empty() ? mLine : mLines[i]; }

 private:
  friend class CsvReader;

  void Clear();

  std::vector<std::string_view> mFields;
  std::size_t mLine = 0;  // where the row starts
  // The line of every field, kept only once a quoted line break puts fields on later lines.
  std::vector<std::size_t> mLines;
  // Quoted fields with doubled quotes, unescaped: (field, offset, length) into mScratch.
  std::string mScratch;
  std::vector<std::pair<std::size_t, std::pair<std::size_t, std::size_t>>> mEscaped;
};

class CsvReader {
 public:
  // Reads `text`, naming `sourceName` in errors. `separator` must not be a double quote, CR
  // or LF (throws `InvalidArgument`).
  CsvReader(std::string_view text, std::string sourceName, char separator);

  // Reads the next row into `row`; false, with `row` empty, when the text is exhausted.
  bool ReadRow(CsvRow& row);

  // The number of fields of every row; 0 before the first row.
  std::size_t GetWidth() const { return mWidth; }
  // Bytes of the text consumed so far.
  std::size_t GetOffset() const { return static_cast<std::size_t>(mPos - mBegin); }
  const std::string& GetSourceName() const { return mSourceName; }

 private:
  // Reads the unquoted field that starts at `p` into `row`, and the fields after it while
  // they end in a separator and the next is not quoted; returns the position of the last
  // field's end (a separator, CR, LF or the end of the text).
  const char* ReadUnquoted(const char* p, CsvRow& row);
  // Reads the quoted field that starts at `p` (the opening quote) into `row`; returns the
  // position after the closing quote.
  const char* ReadQuoted(const char* p, CsvRow& row);

  const char* mBegin;
  const char* mPos;
  const char* mEnd;
  std::string mSourceName;
  char mSeparator;
  std::size_t mLine = 1;
  std::size_t mWidth = 0;
  bool mEndsField[256] = {};    // the separator, CR and LF
  alignas(16) char mStops[48];  // the separator, CR and LF, sixteen times each
};

}  // namespace ncds::tool

#endif  // NCDS_TOOLS_NCDS_CSVREADER_H
