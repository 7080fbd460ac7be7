#include "tools/ncds/CsvTailParser.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "tools/ncds/CsvReader.h"

namespace ncds::tool {
namespace detail {
namespace {

// Below this, a second thread costs more than it saves.
constexpr std::size_t kMinSplitBytes = std::size_t{4} << 20;
// How often, in rows, the thread looks whether it should stop.
constexpr std::size_t kStopCheckRows = 1024;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

}  // namespace
}  // namespace detail

std::size_t CsvTailParser::FindSplit(std::string_view text, std::size_t dataBegin) {
  if (dataBegin >= text.size() || text.size() - dataBegin < detail::kMinSplitBytes) return 0;
  const std::string_view data = text.substr(dataBegin);
  if (std::memchr(data.data(), '"', data.size())) return 0;
  const std::size_t lineFeed = text.find('\n', dataBegin + data.size() / 2);
  if (lineFeed == std::string_view::npos || lineFeed + 1 >= text.size()) return 0;
  return lineFeed + 1;
}

CsvTailParser::CsvTailParser(std::string_view text, std::size_t begin, char separator,
                             std::vector<int> variableOf, std::vector<int> idOf,
                             std::size_t idColumns, const CsvCellParser& parser)
    : mText(text),
      mBegin(begin),
      mSeparator(separator),
      mVariableOf(std::move(variableOf)),
      mIDOf(std::move(idOf)),
      mParser(parser),
      mIDText(idColumns),
      mIDEnds(idColumns) {
  mDone = std::async(std::launch::async, [this] {
    try {
      return Run();
    } catch (...) {
      return false;  // the caller's own pass meets the same error and reports it
    }
  });
}

CsvTailParser::~CsvTailParser() {
  mStop.store(true, std::memory_order_relaxed);
  if (mDone.valid()) mDone.wait();
}

bool CsvTailParser::Wait() {
  if (!mWaited) {
    mSucceeded = mDone.get();
    mWaited = true;
  }
  return mSucceeded;
}

bool CsvTailParser::Run() {
  const std::string_view tail = mText.substr(mBegin);
  // The caller's reader skips a byte order mark only at the start of the file.
  if (tail.substr(0, detail::kByteOrderMark.size()) == detail::kByteOrderMark) return false;
  const std::size_t width = mVariableOf.size();
  const auto variables = static_cast<std::size_t>(std::count_if(
      mVariableOf.begin(), mVariableOf.end(), [](int variable) { return variable >= 0; }));
  if (variables == 0) return false;
  mNumbers.assign(variables, 0);

  CsvReader reader(tail, std::string(), mSeparator);
  CsvRow row;
  if (!reader.ReadRow(row)) return false;
  // Room for the rows the first row's length suggests, never more than the text could hold.
  const std::size_t guess = tail.size() / std::max<std::size_t>(reader.GetOffset(), 1) + 1;
  mValues.Resize(std::min(tail.size() / width + 1, guess + guess / 8 + 16), variables);
  float* base = mValues.ColumnData(0);
  std::size_t stride = mValues.CapacityRows();
  for (std::size_t k = 0; k < mIDText.size(); ++k) mIDEnds[k].reserve(mValues.SizeRows());

  std::size_t& rows = mRows;
  do {
    if (row.size() != width) return false;
    if (rows % detail::kStopCheckRows == 0 && mStop.load(std::memory_order_relaxed)) return false;
    if (rows == mValues.SizeRows()) {
      mValues.InsertRows(rows, std::max<std::size_t>(rows / 2, 1024));
      base = mValues.ColumnData(0);
      stride = mValues.CapacityRows();
    }
    for (std::size_t j = 0; j < width; ++j) {
      const std::string_view cell = CsvCellParser::Trim(row[j]);
      const int variable = mVariableOf[j];
      if (variable < 0) {
        const auto k = static_cast<std::size_t>(mIDOf[j]);
        mIDText[k].append(cell);
        mIDEnds[k].push_back(mIDText[k].size());
      } else if (!mParser.IsMissing(cell)) {
        const auto v = static_cast<std::size_t>(variable);
        if (mParser.ParseNumber(cell, base[v * stride + rows]) !=
            CsvCellParser::NumberResult::eNumber) {
          return false;
        }
        ++mNumbers[v];
      }
    }
    ++rows;
  } while (reader.ReadRow(row));
  mValues.Resize(rows, variables);
  return true;
}

}  // namespace ncds::tool
