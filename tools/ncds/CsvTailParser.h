#ifndef NCDS_TOOLS_NCDS_CSVTAILPARSER_H
#define NCDS_TOOLS_NCDS_CSVTAILPARSER_H

// Reads the second half of a large CSV text on another thread while the caller reads the
// first, for the common case of a file whose variables are all numbers: parsing is most of
// the cost of an import, and the machine has a second core.
//
// The tail is read on speculation: it counts only when every row has the file's width and
// every variable cell in it is a number or missing. At the first cell that is anything else
// (a text, a date-time, a malformed number), a ragged row, or any other error, the thread
// gives up and the caller reads the tail itself as before, so that kinds, levels and error
// messages (with their line numbers) come out exactly as from one sequential pass. A text
// with a double quote is never split, since a line break inside quotes would be taken for
// the end of a row.
//
// The values go to a matrix of the tail's own (rows x variables, missing where a cell is
// missing); the ID cells to their own text columns. The thread is stopped and joined when
// the object goes, also when the caller leaves by an exception.

#include <atomic>
#include <cstddef>
#include <future>
#include <string>
#include <string_view>
#include <vector>

#include "ncds/foundations/NCDataMatrix.h"
#include "tools/ncds/CsvCellParser.h"

namespace ncds::tool {

class CsvTailParser {
 public:
  // The offset where the tail of `text` starts (just after a line feed near the middle of
  // what follows `dataBegin`), or 0 when the text is too small to be worth splitting or holds
  // a double quote.
  static std::size_t FindSplit(std::string_view text, std::size_t dataBegin);

  // Starts reading `text` from `begin` (a value of FindSplit). `variableOf[j]` is the
  // variable index of field j, or -1 when field j is ID column `idOf[j]`; `width` is the
  // number of fields of every row. The parser must outlive the object.
  CsvTailParser(std::string_view text, std::size_t begin, char separator,
                std::vector<int> variableOf, std::vector<int> idOf, std::size_t idColumns,
                const CsvCellParser& parser);
  ~CsvTailParser();
  CsvTailParser(const CsvTailParser&) = delete;
  CsvTailParser& operator=(const CsvTailParser&) = delete;

  std::size_t GetBegin() const { return mBegin; }
  // Waits for the thread; true when it read the whole tail (see above).
  bool Wait();

  // After a successful Wait: the tail's rows, values and counts of numbers per variable.
  std::size_t GetRows() const { return mRows; }
  const NCDataMatrix<float>& GetValues() const { return mValues; }
  std::size_t GetNumbers(std::size_t variable) const { return mNumbers[variable]; }
  // The ID cells of ID column k, one after the other, and where each ends in that text.
  const std::string& GetIDText(std::size_t k) const { return mIDText[k]; }
  const std::vector<std::size_t>& GetIDEnds(std::size_t k) const { return mIDEnds[k]; }

 private:
  bool Run();

  std::string_view mText;
  std::size_t mBegin;
  char mSeparator;
  std::vector<int> mVariableOf;
  std::vector<int> mIDOf;
  const CsvCellParser& mParser;

  std::atomic<bool> mStop{false};
  std::future<bool> mDone;
  bool mWaited = false;
  bool mSucceeded = false;

  std::size_t mRows = 0;
  NCDataMatrix<float> mValues;
  std::vector<std::size_t> mNumbers;
  std::vector<std::string> mIDText;
  std::vector<std::vector<std::size_t>> mIDEnds;
};

}  // namespace ncds::tool

#endif  // NCDS_TOOLS_NCDS_CSVTAILPARSER_H
