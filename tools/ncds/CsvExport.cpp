#include "tools/ncds/CsvExport.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <ostream>
#include <sstream>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "ncds/batch/BatchUtilities.h"
#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCProjectBase.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/ExceptionMessage.h"
#include "ncds/foundations/NCProgress.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/ObservationInfo.h"
#include "ncds/metadata/VariableInfo.h"
#include "tools/ncds/CsvImport.h"

namespace ncds::tool {
namespace detail {
namespace {

constexpr float kMissing = -99.0F;
constexpr char kQuote = '"';
// Distinct values whose text a column remembers; beyond, values are decoded each time.
constexpr std::size_t kDecodeCacheSize = 4096;

// Collects output and hands it to the stream in large blocks.
class BlockOutput {
 public:
  static constexpr std::size_t kBlock = std::size_t{1} << 20;

  explicit BlockOutput(std::ostream& os) : mOs(os), mBuffer(kBlock + 64) {}

  // Room for `n` more bytes at the returned position; `Advance` then claims what was used.
  char* Room(std::size_t n) {
    if (mUsed + n > mBuffer.size()) {
      Flush();
      if (n > mBuffer.size()) mBuffer.resize(n);
    }
    return mBuffer.data() + mUsed;
  }
  void Advance(const char* end) { mUsed = static_cast<std::size_t>(end - mBuffer.data()); }
  void Put(char c) {
    if (mUsed == mBuffer.size()) Flush();
    mBuffer[mUsed++] = c;
  }
  void Put(std::string_view text) {
    char* at = Room(text.size());
    std::memcpy(at, text.data(), text.size());
    mUsed += text.size();
    if (mUsed >= kBlock) Flush();
  }
  void Flush() {
    if (mUsed == 0) return;
    mOs.write(mBuffer.data(), static_cast<std::streamsize>(mUsed));
    mFlushed += mUsed;
    mUsed = 0;
  }
  // The bytes put so far.
  std::size_t Total() const { return mFlushed + mUsed; }

 private:
  std::ostream& mOs;
  std::vector<char> mBuffer;
  std::size_t mUsed = 0;
  std::size_t mFlushed = 0;
};

// Writes fields with the quoting they need.
class FieldWriter {
 public:
  FieldWriter(BlockOutput& out, char separator, char decimal)
      : mOut(out), mSeparator(separator), mDecimal(decimal) {
    mNeedsQuotes[static_cast<unsigned char>(separator)] = true;
    mNeedsQuotes[static_cast<unsigned char>(kQuote)] = true;
    mNeedsQuotes[static_cast<unsigned char>('\r')] = true;
    mNeedsQuotes[static_cast<unsigned char>('\n')] = true;
    // Characters a number may hold: only a separator among them can make a number need quotes.
    for (const char c : std::string_view("0123456789-+.,e")) {
      mSeparatorInNumbers = mSeparatorInNumbers || c == separator;
    }
  }

  void Separator() { mOut.Put(mSeparator); }
  void LineEnd() { mOut.Put('\n'); }

  void Text(std::string_view text) {
    // A byte-order mark opening the file would be taken for the file's own: quoted, it is not.
    bool quote = text.substr(0, 3) == "\xEF\xBB\xBF";
    for (const char c : text) {
      if (mNeedsQuotes[static_cast<unsigned char>(c)]) {
        quote = true;
        break;
      }
    }
    if (!quote) {
      mOut.Put(text);
      return;
    }
    mOut.Put(kQuote);
    for (std::size_t start = 0;;) {
      const std::size_t at = text.find(kQuote, start);
      if (at == std::string_view::npos) {
        mOut.Put(text.substr(start));
        break;
      }
      mOut.Put(text.substr(start, at + 1 - start));
      mOut.Put(kQuote);
      start = at + 1;
    }
    mOut.Put(kQuote);
  }

  void Number(float value) {
    if (value == kMissing || !std::isfinite(value)) return;
    constexpr std::size_t kLongest = 32;
    char* const begin = mOut.Room(kLongest);
    const std::to_chars_result result = std::to_chars(begin, begin + kLongest, value);
    if (mDecimal != '.') {
      for (char* p = begin; p < result.ptr; ++p) {
        if (*p == '.') *p = mDecimal;
      }
    }
    if (mSeparatorInNumbers &&
        std::memchr(begin, mSeparator, static_cast<std::size_t>(result.ptr - begin))) {
      const std::string text(begin, result.ptr);
      Text(text);
      return;
    }
    mOut.Advance(result.ptr);
  }

 private:
  BlockOutput& mOut;
  char mSeparator;
  char mDecimal;
  bool mSeparatorInNumbers = false;
  bool mNeedsQuotes[256] = {};
};

// A variable's column and how its values become text.
class OutputColumn {
 public:
  OutputColumn(const float* values, VariableInfo* info)
      : mValues(values), mInfo(info), mDecoded(info && !info->AsQuantitativeVariableInfo()) {}

  void Write(std::size_t row, FieldWriter& writer) {
    const float value = mValues[row];
    if (!mDecoded) {
      writer.Number(value);
    } else if (value != kMissing) {
      writer.Text(Decode(value));
    }
  }

 private:
  std::string_view Decode(float value) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    const auto found = mCache.find(bits);
    if (found != mCache.end()) return found->second;
    if (mCache.size() < kDecodeCacheSize)
      return mCache.emplace(bits, mInfo->Decode(value)).first->second;
    mScratch = mInfo->Decode(value);
    return mScratch;
  }

  const float* mValues;
  VariableInfo* mInfo;
  bool mDecoded;
  std::unordered_map<std::uint32_t, std::string> mCache;
  std::string mScratch;
};

// Whether every row's primary ID equals its ID in `series`.
bool SameAsPrimary(const VarObsInfoVector<ObservationInfo>& rows, int series) {
  for (const ObservationInfo* row : rows) {
    if (!row || row->GetUserID(series) != row->GetUserID(1)) return false;
  }
  return true;
}

// Whether the primary IDs are those an import without an ID column gives: the row numbers,
// or in a batch dataset the batch name and the position in the batch.
bool AreGeneratedIDs(const NCDataSet& dataSet, const NCObservations& observations) {
  const VarObsInfoVector<ObservationInfo>& rows = dataSet.GetObservationInfoVector();
  if (!(dataSet.GetDataType() & NCDataSet::kBatchBit) || !observations.HasBatches()) {
    for (std::size_t i = 0; i < rows.size(); ++i) {
      if (!rows[i] || rows[i]->GetUserID(1) != std::to_string(i + 1)) return false;
    }
    return true;
  }
  std::vector<int> starts = BatchUtilities::GetRunStarts(observations, rows, false);
  starts.push_back(static_cast<int>(rows.size()) + 1);
  std::size_t longest = 0;
  for (std::size_t r = 0; r + 1 < starts.size(); ++r) {
    longest = std::max(longest, static_cast<std::size_t>(starts[r + 1] - starts[r]));
  }
  for (std::size_t r = 0; r + 1 < starts.size(); ++r) {
    for (int row = starts[r]; row < starts[r + 1]; ++row) {
      const ObservationInfo* info = rows[static_cast<std::size_t>(row - 1)];
      if (!info ||
          info->GetUserID(1) != CsvImport::BatchRowID(info->GetBatchName(observations),
                                                      static_cast<std::size_t>(row - starts[r] + 1),
                                                      longest)) {
        return false;
      }
    }
  }
  return true;
}

}  // namespace
}  // namespace detail

std::vector<int> CsvExport::ExportedSeries(const NCDataSet& dataSet,
                                           const NCObservations& observations) {
  std::vector<int> series = dataSet.GetUsedObsAliases();
  const auto primary = std::find(series.begin(), series.end(), 1);
  if (primary == series.end()) return series;
  const VarObsInfoVector<ObservationInfo>& rows = dataSet.GetObservationInfoVector();
  for (auto other = series.begin(); other != series.end(); ++other) {
    if (*other == 1 || *other == observations.GetBatchIDRaw() ||
        *other == observations.GetPhaseIDRaw() || !detail::SameAsPrimary(rows, *other)) {
      continue;
    }
    // The series that holds the primary IDs comes first, in place of the primary series.
    const int holder = *other;
    series.erase(other);
    *std::find(series.begin(), series.end(), 1) = holder;
    return series;
  }
  if (detail::AreGeneratedIDs(dataSet, observations)) series.erase(primary);
  return series;
}

void CsvExport::Write(const NCDataSet& dataSet, std::ostream& os, const CsvExportOptions& options) {
  CheckCsvCharacters(options.separator, options.decimal);
  const boost::shared_ptr<NCProjectBase const> project = dataSet.GetProject();
  if (!project) {
    throw NCError(ExceptionMessage::translate("The dataset \"{1}\" belongs to no project.") %
                  dataSet.GetName());
  }
  const NCVariables& variables = project->GetVariables();
  const NCObservations& observations = project->GetObservations();
  NCDataMatrix<float> centered;
  if (options.centered) centered = dataSet.GetData(true, nullptr);
  const NCDataMatrix<float>& matrix = options.centered ? centered : dataSet.GetMatrix();
  const std::vector<int> aliases = ExportedSeries(dataSet, observations);
  const auto rows = static_cast<std::size_t>(dataSet.SizeObservations());
  const auto columns = static_cast<std::size_t>(dataSet.SizeVariables());

  detail::BlockOutput out(os);
  detail::FieldWriter writer(out, options.separator, options.decimal);
  const std::size_t width = aliases.size() + columns;

  // Header.
  for (std::size_t k = 0; k < aliases.size(); ++k) {
    if (k > 0) writer.Separator();
    const int series = aliases[k];
    writer.Text(series == 1 && !options.primaryIDHeader.empty()
                    ? options.primaryIDHeader
                    : observations.GetIDLabelRaw(series));
  }
  std::vector<detail::OutputColumn> outputs;
  outputs.reserve(columns);
  for (std::size_t j = 0; j < columns; ++j) {
    VariableInfo* info = variables[dataSet.GetVarID(static_cast<int>(j + 1))];
    if (j > 0 || !aliases.empty()) writer.Separator();
    if (info) writer.Text(info->GetUserID(1));
    outputs.emplace_back(matrix.ColumnData(j), info);
  }
  writer.LineEnd();

  // Rows.
  NCProgress progress(
      (ExceptionMessage::translate("Writing dataset \"{1}\"") % dataSet.GetName()).str(), 0,
      static_cast<float>(rows), false, false, true);
  for (std::size_t i = 0; i < rows; ++i) {
    progress.SetValue(static_cast<float>(i));
    const ObservationInfo* info = dataSet.GetObservationInfo(static_cast<int>(i + 1));
    const std::size_t rowStart = out.Total();
    for (std::size_t k = 0; k < aliases.size(); ++k) {
      if (k > 0) writer.Separator();
      writer.Text(info ? std::string_view(info->GetUserID(aliases[k])) : "");
    }
    for (std::size_t j = 0; j < columns; ++j) {
      if (j > 0 || !aliases.empty()) writer.Separator();
      outputs[j].Write(i, writer);
    }
    // A row of one empty field would read as an empty line, which is no row.
    if (width == 1 && out.Total() == rowStart) out.Put("\"\"");
    writer.LineEnd();
  }
  out.Flush();
  progress.SetValue(static_cast<float>(rows));
}

void CsvExport::WriteFile(const NCDataSet& dataSet, const std::string& path,
                          const CsvExportOptions& options) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  try {
    if (file) Write(dataSet, file, options);
  } catch (...) {
    file.close();
    std::remove(path.c_str());
    throw;
  }
  if (file) file.close();
  if (!file) {
    const int error = errno;
    std::remove(path.c_str());
    throw NCError(ExceptionMessage::translate("{1}: the file cannot be written ({2}).") % path %
                  std::strerror(error));
  }
}

std::string CsvExport::ToText(const NCDataSet& dataSet, const CsvExportOptions& options) {
  std::ostringstream os;
  Write(dataSet, os, options);
  return os.str();
}

}  // namespace ncds::tool
