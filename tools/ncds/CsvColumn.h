#ifndef NCDS_TOOLS_NCDS_CSVCOLUMN_H
#define NCDS_TOOLS_NCDS_CSVCOLUMN_H

// One column of a CSV file on its way into a dataset: the column's kind, decided from all its
// cells, and its values in the dataset's float form (-99 for missing).
//
// - Quantitative when every cell that is not missing is a number (and when all are missing).
// - Date-time when every such cell is an ISO 8601 date-time. The values count the time since
//   the earliest date-time of the column (the offset) in the coarsest unit of day, hour,
//   minute or second that holds every value whole; dates without a time of day are shown
//   as yyyy-MM-dd, others in ISO 8601. A float holds whole units exactly up to 2^24 of them
//   from the offset (194 days in seconds, 31 years in minutes).
// - Qualitative when some cell is text: neither a number, nor a date-time, nor a malformed
//   number (see `CsvCellParser`). Its levels are the distinct texts in order of first
//   appearance, compared ignoring case (as the variable compares them), coded 1, 2, ...
// - Any other column mixes numbers, date-times and malformed numbers ("1,5" where the
//   decimal character is '.'), and is refused: `Decide` answers false and `ThrowBadCell`
//   names the first cell that is not of the kind of the column's first value.
//
// The first pass over the file classifies every cell and keeps the values of the kind the
// column seems to have; when the decided kind differs from it, a second pass (`AddAgain`)
// keeps them anew. Numbers and level codes go straight into the cell the caller hands in
// (which must start missing); date-times are kept until `Finish`, which needs the earliest.
// Nothing is allocated per cell except the first copy of each level. One thread.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "ncds/foundations/SimpDateTime.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/foundations/VxTimeUtl.h"
#include "tools/ncds/CsvCellParser.h"

namespace ncds::tool {

class CsvColumn {
 public:
  enum class Kind { eQuantitative, eQualitative, eDateTime };

  // Column `number` (1-based) headed `name`, of a file named `source` in messages; room is
  // made for `expectedRows` values.
  CsvColumn(std::string name, std::size_t number, const std::string& source,
            std::size_t expectedRows);

  // First pass: the next cell, trimmed, which starts on `line`, and its place in the values.
  void Add(std::string_view cell, std::size_t line, const CsvCellParser& parser, float& value) {
    // A column that holds numbers only so far takes the next number the short way.
    if (mOnlyNumbers && !parser.IsMissing(cell) &&
        parser.ParseNumber(cell, value) == CsvCellParser::NumberResult::eNumber) {
      ++mNonMissing;
      return;
    }
    AddAny(cell, line, parser, value);
  }
  // Whether every cell so far was a number or missing, so that further numbers change nothing
  // but the count: then `AddNumbers` stands for adding that many numbers.
  bool TakesNumbersOnly() const { return mOnlyNumbers; }
  void AddNumbers(std::size_t count) { mNonMissing += count; }
  // Decides the kind after the first pass; false for a refused column (see above).
  bool Decide();
  // The line of the first cell that spoils a refused column.
  std::size_t GetBadCellLine() const { return FirstMisfit().line; }
  // Throws the `NCError` that names that cell.
  [[noreturn]] void ThrowBadCell() const;

  // Whether the decided kind needs a second pass over the cells.
  bool NeedsSecondPass() const { return mNeedsSecondPass; }
  // Second pass: every cell again, each value set (missing ones too).
  void AddAgain(std::string_view cell, const CsvCellParser& parser, float& value);
  // Sets what only the whole column tells (date-times) in `values`, one per row; call once,
  // after the last pass.
  void Finish(float* values);

  const std::string& GetName() const { return mName; }
  Kind GetKind() const { return mKind; }
  // The levels of a qualitative column in code order.
  std::vector<std::string> TakeLevels();
  // After the rows were put in another order: renumbers the levels of a qualitative column in
  // order of first appearance in its `rows` codes `values`, as reading the rows in that order
  // would have numbered them. Other kinds are left alone.
  void RenumberLevels(float* values, std::size_t rows);
  // The settings of a date-time column.
  const VxTimeUtl::SimpDateTime& GetOffset() const { return mOffset; }
  VxTimeUtl::ETimeAccuracy GetAccuracy() const { return mAccuracy; }
  const std::string& GetDatasetFormat() const { return mDatasetFormat; }

 private:
  // What the first pass keeps: the kind of the first cell that is not missing.
  enum class Kept { eNothingYet, eNumbers, eDateTimes, eCodes };
  // The first cell that is not of some kind.
  struct Misfit {
    std::size_t line = 0;
    std::string text;
    bool outOfRange = false;
  };

  // The first cell that does not fit the kind of the first value of the column.
  const Misfit& FirstMisfit() const;

  void AddAny(std::string_view cell, std::size_t line, const CsvCellParser& parser, float& value);
  void AddMissing();
  float LevelCode(std::string_view text);
  void FinishDateTimes(float* values);

  std::string mName;
  std::size_t mNumber;
  std::string mSource;
  std::size_t mExpectedRows;

  // What the cells so far hold.
  std::size_t mNonMissing = 0;
  bool mAllNumbers = true;
  bool mAllDateTimes = true;
  bool mAnyText = false;
  Misfit mFirstNonNumber;
  Misfit mFirstNonDateTime;

  Kept mKept = Kept::eNothingYet;
  // Numbers are kept and every cell so far was a number (none a date-time): the next number
  // changes nothing but the count.
  bool mOnlyNumbers = false;
  bool mKeeping = true;             // false once the cells no longer fit what is kept
  std::size_t mLeadingMissing = 0;  // before the first value, while nothing is kept
  Kind mKind = Kind::eQuantitative;
  bool mNeedsSecondPass = false;

  std::vector<std::int64_t> mTimes;  // date-times, microseconds since 1970, one per row
  std::deque<std::string> mLevels;   // stable addresses for the keys below
  std::unordered_map<std::string_view, int, VxStdString::NoCaseHash, VxStdString::NoCaseEqual>
      mCodes;

  VxTimeUtl::SimpDateTime mOffset;
  VxTimeUtl::ETimeAccuracy mAccuracy = VxTimeUtl::eSecond;
  std::string mDatasetFormat;
};

}  // namespace ncds::tool

#endif  // NCDS_TOOLS_NCDS_CSVCOLUMN_H
