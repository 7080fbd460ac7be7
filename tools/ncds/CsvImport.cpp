#include "tools/ncds/CsvImport.h"

#include <algorithm>
#include <boost/format.hpp>
#include <climits>
#include <cstring>
#include <filesystem>
#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "ncds/batch/BatchImportSettings.h"
#include "ncds/batch/BatchInfo.h"
#include "ncds/batch/BatchInfoVector.h"
#include "ncds/batch/BatchUtilities.h"
#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCProjectBase.h"
#include "ncds/derived/GenVarFormula.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/Messages.h"
#include "ncds/foundations/NCDataMatrix.h"
#include "ncds/foundations/NCProgress.h"
#include "ncds/foundations/NCStringVector.h"
#include "ncds/foundations/UserComm.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/ObservationInfo.h"
#include "ncds/metadata/VariableInfo.h"
#include "ncds/smoothing/Smooth.h"
#include "tools/ncds/BatchCommands.h"
#include "tools/ncds/CsvCellParser.h"
#include "tools/ncds/CsvColumn.h"
#include "tools/ncds/CsvReader.h"
#include "tools/ncds/CsvTailParser.h"
#include "tools/ncds/ImportVariables.h"
#include "tools/ncds/MappedFile.h"

namespace ncds::tool {
namespace detail {
namespace {

// The texts of one ID column, all rows in one buffer.
struct IDColumn {
  std::string header;
  std::string text;
  std::vector<std::size_t> ends;

  void Append(std::string_view id) {
    text.append(id);
    ends.push_back(text.size());
  }
  std::string_view Get(std::size_t row) const {
    const std::size_t begin = row == 0 ? 0 : ends[row - 1];
    return std::string_view(text).substr(begin, ends[row] - begin);
  }
};

// Everything the file holds, checked, before anything goes into the project.
struct ParsedFile {
  std::vector<IDColumn> ids;
  std::vector<CsvColumn> columns;  // the variables, in file order
  NCDataMatrix<float> values;      // rows x columns
  std::size_t rows = 0;
};

// Where the cells of one file column go: an ID column, or variable `index`.
struct CellTarget {
  IDColumn* id = nullptr;
  CsvColumn* column = nullptr;
  std::size_t index = 0;
};

// The positions of the ID columns named in `names`, in that order.
std::vector<std::size_t> FindIDColumns(const std::vector<std::string>& header,
                                       const std::vector<std::string>& names,
                                       const std::string& source) {
  std::vector<std::size_t> positions;
  for (const std::string& name : names) {
    std::size_t position = 0;
    while (position < header.size() && header[position] != name) ++position;
    if (position == header.size()) {
      throw NCError(ExceptionMessage::translate("{1}: there is no column named \"{2}\".") % source %
                    name);
    }
    for (const std::size_t taken : positions) {
      if (taken == position) {
        throw NCError(ExceptionMessage::translate(
                          "{1}: the column \"{2}\" is named more than once as an ID column.") %
                      source % name);
      }
    }
    positions.push_back(position);
  }
  return positions;
}

// The ID columns of an import: the named ones, then the batch and the phase column.
std::vector<std::string> IDColumnNames(const CsvImportOptions& options) {
  std::vector<std::string> names = options.idColumns;
  if (!options.batchColumn.empty()) names.push_back(options.batchColumn);
  if (!options.phaseColumn.empty()) names.push_back(options.phaseColumn);
  return names;
}

// About how many rows follow, judged by the first data row, and never more than the bytes
// left could hold (a row takes at least one byte per field).
std::size_t EstimateRows(std::size_t bytesLeft, std::size_t firstRowBytes, std::size_t width) {
  const std::size_t bound = bytesLeft / width + 1;
  const std::size_t guess = bytesLeft / std::max<std::size_t>(firstRowBytes, 1) + 1;
  return std::min(bound, guess + guess / 8 + 16);
}

// Appends what `tail` read to `parsed`, when it read the whole tail and every variable takes
// numbers only so far; false otherwise, and `parsed` is unchanged.
bool TakeTail(CsvTailParser& tail, ParsedFile& parsed) {
  if (!tail.Wait() || tail.GetRows() >= static_cast<std::size_t>(INT_MAX - 1) - parsed.rows) {
    return false;
  }
  for (const CsvColumn& column : parsed.columns) {
    if (!column.TakesNumbersOnly()) return false;
  }
  const std::size_t first = parsed.rows;
  const std::size_t added = tail.GetRows();
  parsed.values.Resize(first + added, parsed.columns.size());
  for (std::size_t k = 0; k < parsed.columns.size(); ++k) {
    std::memcpy(parsed.values.ColumnData(k) + first, tail.GetValues().ColumnData(k),
                added * sizeof(float));
    parsed.columns[k].AddNumbers(tail.GetNumbers(k));
  }
  for (std::size_t k = 0; k < parsed.ids.size(); ++k) {
    IDColumn& ids = parsed.ids[k];
    const std::size_t offset = ids.text.size();
    ids.text.append(tail.GetIDText(k));
    for (const std::size_t end : tail.GetIDEnds(k)) ids.ends.push_back(offset + end);
  }
  parsed.rows += added;
  return true;
}

ParsedFile Parse(std::string_view text, const std::string& source,
                 const CsvImportOptions& options) {
  const CsvCellParser cells(options.decimal, options.missingTexts);
  CsvReader reader(text, source, options.separator);
  CsvRow row;
  if (!reader.ReadRow(row)) {
    throw NCError(ExceptionMessage::translate("{1}: the file is empty.") % source);
  }
  const std::size_t width = row.size();
  if (width >= static_cast<std::size_t>(INT_MAX)) {
    throw NCError(ExceptionMessage::translate("{1}: the file has too many columns.") % source);
  }
  std::vector<std::string> header;
  header.reserve(width);
  for (std::size_t j = 0; j < width; ++j) header.emplace_back(CsvCellParser::Trim(row[j]));
  const std::vector<std::size_t> idPositions =
      FindIDColumns(header, IDColumnNames(options), source);

  const std::size_t headerEnd = reader.GetOffset();
  const bool hasData = reader.ReadRow(row);
  const std::size_t expectedRows =
      hasData ? EstimateRows(text.size() - headerEnd, reader.GetOffset() - headerEnd, width) : 0;

  ParsedFile parsed;
  parsed.ids.resize(idPositions.size());
  parsed.columns.reserve(width - idPositions.size());
  std::vector<CellTarget> targets(width);
  for (std::size_t k = 0; k < idPositions.size(); ++k) {
    parsed.ids[k].header = header[idPositions[k]];
    parsed.ids[k].ends.reserve(expectedRows);
    if (hasData) {
      // Never more than the text holds.
      const std::size_t guess =
          expectedRows * (CsvCellParser::Trim(row[idPositions[k]]).size() + 1);
      parsed.ids[k].text.reserve(std::min(guess, text.size() - headerEnd));
    }
    targets[idPositions[k]].id = &parsed.ids[k];
  }
  for (std::size_t j = 0; j < width; ++j) {
    if (targets[j].id) continue;
    targets[j].index = parsed.columns.size();
    parsed.columns.emplace_back(header[j], j + 1, source, expectedRows);
    targets[j].column = &parsed.columns.back();
  }
  const std::size_t variables = parsed.columns.size();

  // The second half of a large file is read on another thread meanwhile, in case it holds
  // numbers only.
  std::unique_ptr<CsvTailParser> tail;
  const std::size_t split = hasData ? CsvTailParser::FindSplit(text, reader.GetOffset()) : 0;
  if (split > 0 && variables > 0) {
    std::vector<int> variableOf(width, -1);
    std::vector<int> idOf(width, -1);
    for (std::size_t j = 0; j < width; ++j) {
      if (targets[j].column) {
        variableOf[j] = static_cast<int>(targets[j].index);
      } else {
        idOf[j] = static_cast<int>(targets[j].id - parsed.ids.data());
      }
    }
    tail = std::make_unique<CsvTailParser>(text, split, options.separator, std::move(variableOf),
                                           std::move(idOf), parsed.ids.size(), cells);
  }

  NCProgress progress((ExceptionMessage::translate("Reading {1}") % source).str(), 0,
                      static_cast<float>(text.size()), false, false, true);

  // First pass: every cell classified and kept. The values go into a matrix of missing values
  // that grows by blocks of rows; column k of row i is at base[k * stride + i].
  NCDataMatrix<float>& values = parsed.values;
  values.Resize(expectedRows, variables);
  float* base = values.ColumnData(0);
  std::size_t stride = values.CapacityRows();
  std::size_t& rows = parsed.rows;
  for (bool more = hasData; more; more = reader.ReadRow(row)) {
    if (rows == static_cast<std::size_t>(INT_MAX - 1)) {
      throw NCError(ExceptionMessage::translate("{1}: the file has too many rows.") % source);
    }
    if (rows == values.SizeRows()) {
      values.InsertRows(rows, std::max<std::size_t>(rows / 2, 1024));
      base = values.ColumnData(0);
      stride = values.CapacityRows();
    }
    for (std::size_t j = 0; j < width; ++j) {
      const std::string_view cell = CsvCellParser::Trim(row[j]);
      const CellTarget& target = targets[j];
      if (target.column) {
        target.column->Add(cell, row.GetLine(j), cells, base[target.index * stride + rows]);
      } else {
        target.id->Append(cell);
      }
    }
    ++rows;
    progress.SetValue(static_cast<float>(reader.GetOffset()));
    if (tail && reader.GetOffset() >= tail->GetBegin()) {
      if (reader.GetOffset() == tail->GetBegin() && TakeTail(*tail, parsed)) break;
      tail.reset();  // the rest is read here
    }
  }
  tail.reset();
  progress.SetValue(static_cast<float>(text.size()));
  values.Resize(rows, variables);

  // The first cell of the file that spoils its column, if any column is refused.
  const CsvColumn* refused = nullptr;
  bool secondPass = false;
  for (CsvColumn& column : parsed.columns) {
    if (!column.Decide()) {
      if (!refused || column.GetBadCellLine() < refused->GetBadCellLine()) refused = &column;
    }
    secondPass = secondPass || column.NeedsSecondPass();
  }
  if (refused) refused->ThrowBadCell();

  if (secondPass) {
    CsvReader again(text, source, options.separator);
    again.ReadRow(row);  // the header
    std::vector<std::size_t> redo;
    for (std::size_t j = 0; j < width; ++j) {
      if (targets[j].column && targets[j].column->NeedsSecondPass()) redo.push_back(j);
    }
    for (std::size_t i = 0; again.ReadRow(row); ++i) {
      for (const std::size_t j : redo) {
        targets[j].column->AddAgain(CsvCellParser::Trim(row[j]), cells,
                                    values(i, targets[j].index));
      }
    }
  }
  for (std::size_t k = 0; k < variables && rows > 0; ++k) {
    parsed.columns[k].Finish(values.ColumnData(k));
  }
  return parsed;
}

// The file line on which data row `row` (0-based) starts: found by reading the file again,
// which only an error report needs.
std::size_t LineOfRow(std::string_view text, const std::string& source, char separator,
                      std::size_t row) {
  CsvReader reader(text, source, separator);
  CsvRow cells;
  reader.ReadRow(cells);  // the header
  for (std::size_t i = 0; reader.ReadRow(cells); ++i) {
    if (i == row) return cells.GetLine(0);
  }
  return 0;
}

// Puts the rows of `parsed` into the order `order` (former row positions).
void ReorderRows(ParsedFile& parsed, const std::vector<std::size_t>& order) {
  NCDataMatrix<float> values(parsed.rows, parsed.columns.size());
  for (std::size_t k = 0; k < parsed.columns.size(); ++k) {
    const float* from = parsed.values.ColumnData(k);
    float* to = values.ColumnData(k);
    for (std::size_t i = 0; i < order.size(); ++i) to[i] = from[order[i]];
  }
  parsed.values = std::move(values);
  for (std::size_t k = 0; k < parsed.columns.size(); ++k) {
    parsed.columns[k].RenumberLevels(parsed.values.ColumnData(k), parsed.rows);
  }
  for (IDColumn& column : parsed.ids) {
    IDColumn reordered;
    reordered.header = column.header;
    reordered.text.reserve(column.text.size());
    reordered.ends.reserve(column.ends.size());
    for (const std::size_t i : order) reordered.Append(column.Get(i));
    column = std::move(reordered);
  }
}

// The rows of a batch file grouped by batch, in order of first appearance and keeping their
// order inside each batch; refused when a batch or phase cell is empty or a phase starts
// again inside a batch after another phase. Returns the batch of each row (after grouping)
// as an index into `batches`.
std::vector<std::size_t> GroupBatches(ParsedFile& parsed, std::string_view text,
                                      const std::string& source, const CsvImportOptions& options,
                                      std::vector<std::string>& batches) {
  const std::size_t batchColumn = options.idColumns.size();
  const bool withPhases = !options.phaseColumn.empty();
  std::unordered_map<std::string_view, std::size_t> batchIndex;
  std::vector<std::size_t> batchOf(parsed.rows);
  std::vector<std::size_t> sizes;
  bool grouped = true;
  for (std::size_t row = 0; row < parsed.rows; ++row) {
    const std::string_view name = parsed.ids[batchColumn].Get(row);
    const std::string_view phase = withPhases ? parsed.ids[batchColumn + 1].Get(row) : "x";
    if (name.empty() || phase.empty()) {
      throw NCError(
          ExceptionMessage::translate("{1}, line {2}: the {3} column \"{4}\" is empty.") % source %
          LineOfRow(text, source, options.separator, row) %
          (name.empty() ? NCMessages::Translate("batch") : NCMessages::Translate("phase")) %
          (name.empty() ? options.batchColumn : options.phaseColumn));
    }
    const auto [at, added] = batchIndex.emplace(name, sizes.size());
    if (added) sizes.push_back(0);
    grouped = grouped && (added || at->second == batchOf[row - 1]);
    batchOf[row] = at->second;
    ++sizes[at->second];
  }
  batches.resize(sizes.size());
  for (const auto& [name, index] : batchIndex) batches[index] = std::string(name);
  // Former row positions in the new order: a stable counting sort by batch.
  std::vector<std::size_t> order(parsed.rows);
  std::vector<std::size_t> next(sizes.size(), 0);
  for (std::size_t b = 1; b < sizes.size(); ++b) next[b] = next[b - 1] + sizes[b - 1];
  for (std::size_t row = 0; row < parsed.rows; ++row) order[next[batchOf[row]]++] = row;
  if (withPhases) {
    // A phase that ends inside a batch may not come back in it.
    const IDColumn& phases = parsed.ids[batchColumn + 1];
    std::unordered_map<std::string_view, std::size_t> ended;  // phase -> batch it ended in
    for (std::size_t i = 1; i < order.size(); ++i) {
      const std::size_t row = order[i];
      const std::size_t before = order[i - 1];
      if (batchOf[row] != batchOf[before]) continue;
      const std::string_view phase = phases.Get(row);
      if (phase == phases.Get(before)) continue;
      ended[phases.Get(before)] = batchOf[before] + 1;
      const auto back = ended.find(phase);
      if (back != ended.end() && back->second == batchOf[row] + 1) {
        throw NCError(ExceptionMessage::translate(
                          "{1}, line {2}: phase \"{3}\" of batch \"{4}\" starts again after "
                          "another phase; the rows of a phase must follow each other.") %
                      source % LineOfRow(text, source, options.separator, row) %
                      std::string(phase) % batches[batchOf[row]]);
      }
    }
  }
  std::vector<std::size_t> batchOfRow(parsed.rows);
  for (std::size_t i = 0; i < order.size(); ++i) batchOfRow[i] = batchOf[order[i]];
  if (!grouped) ReorderRows(parsed, order);
  return batchOfRow;
}

// Primary IDs made unique within one dataset: `wanted` when no other row of the dataset has
// it, else the first free of wanted_1, wanted_2, ... (ignoring case). Other datasets of the
// project may hold the same names. The suffix tried first for a name is the one after the last
// given to it, so many equal IDs cost one lookup each, not one per earlier duplicate.
using NameSet = std::unordered_set<std::string, VxStdString::NoCaseHash, VxStdString::NoCaseEqual>;

class UniqueNamer {
 public:
  // `taken`: the names the dataset's other rows have.
  explicit UniqueNamer(NameSet taken) : mTaken(std::move(taken)) {}

  std::string Make(const std::string& wanted) {
    if (mTaken.insert(wanted).second) return wanted;
    unsigned long& suffix = mLastSuffix[wanted];
    std::string candidate;
    do {
      candidate = wanted + "_" + std::to_string(++suffix);
    } while (!mTaken.insert(candidate).second);
    return candidate;
  }

 private:
  NameSet mTaken;
  std::unordered_map<std::string, unsigned long, VxStdString::NoCaseHash, VxStdString::NoCaseEqual>
      mLastSuffix;
};

// The primary ID each row asks for: its text in the first ID column, or its row number when
// that is empty or there is none.
std::vector<std::string> WantedPrimaryIDs(const ParsedFile& parsed, bool fromColumn) {
  std::vector<std::string> wanted(parsed.rows);
  for (std::size_t row = 0; row < parsed.rows; ++row) {
    if (fromColumn) wanted[row] = parsed.ids[0].Get(row);
    if (wanted[row].empty()) wanted[row] = std::to_string(row + 1);
  }
  return wanted;
}

// Without an ID column the rows of a batch file are named by their batch and their position
// in it, zero-padded to at least three digits: B07_012.
std::vector<std::string> BatchPrimaryIDs(const std::vector<std::size_t>& batchOfRow,
                                         const std::vector<std::string>& batches) {
  std::vector<std::size_t> sizes(batches.size(), 0);
  for (const std::size_t b : batchOfRow) ++sizes[b];
  std::size_t longest = 0;
  for (const std::size_t size : sizes) longest = std::max(longest, size);
  std::vector<std::string> wanted(batchOfRow.size());
  std::size_t position = 0;
  for (std::size_t row = 0; row < batchOfRow.size(); ++row) {
    position = row > 0 && batchOfRow[row] == batchOfRow[row - 1] ? position + 1 : 1;
    wanted[row] = CsvImport::BatchRowID(batches[batchOfRow[row]], position, longest);
  }
  return wanted;
}

// True when no two of `wanted` are equal ignoring case: found by sorting their hashes, not by a
// growing table.
bool AreAllDistinct(const std::vector<std::string>& wanted) {
  std::vector<std::pair<std::size_t, std::size_t>> hashes(wanted.size());
  for (std::size_t i = 0; i < wanted.size(); ++i) {
    hashes[i] = {VxStdString::ComputeCompareNoCaseHash(wanted[i]), i};
  }
  std::sort(hashes.begin(), hashes.end());
  for (std::size_t i = 1; i < hashes.size(); ++i) {
    // Equal hashes are rare; the texts decide.
    for (std::size_t k = i; k > 0 && hashes[k - 1].first == hashes[i].first; --k) {
      if (VxStdString::CompareNoCase(wanted[hashes[k - 1].second], wanted[hashes[i].second]) == 0) {
        return false;
      }
    }
  }
  return true;
}

// What an import has added to the project's observations, taken out again unless the import
// completes. The variables have an undo of their own (`ImportVariables`).
class ProjectUndo {
 public:
  explicit ProjectUndo(NCProjectBase& project)
      : mProject(project),
        mObservations(project.GetObservations()),
        mSettings(project.GetBatchImportSettings()),
        mBatchSeries(mObservations.GetBatchIDRaw()),
        mPhaseSeries(mObservations.GetPhaseIDRaw()),
        mObservationsDirty(mObservations.IsDirty()) {}
  ~ProjectUndo() {
    if (mDone) return;
    try {
      mObservations.DeleteVarObsInfos(mObservationIDs);
      for (auto label = mSeries.rbegin(); label != mSeries.rend(); ++label) {
        mObservations.RemoveSecondaryID(label->c_str());
      }
      mObservations.SetBatchID(mBatchSeries);
      mObservations.SetPhaseID(mPhaseSeries);
      mProject.SetBatchImportSettings(mSettings);
      mObservations.SetIsDirty(mObservationsDirty);
    } catch (...) {
      // Only memory can run out here; the error that started the undo is the one to report.
    }
  }
  ProjectUndo(const ProjectUndo&) = delete;
  ProjectUndo& operator=(const ProjectUndo&) = delete;

  void AddedObservation(unsigned long id) { mObservationIDs.push_back(id); }
  void AddedSeries(const std::string& label) { mSeries.push_back(label); }
  void Done() { mDone = true; }

 private:
  NCProjectBase& mProject;
  NCObservations& mObservations;
  BatchImportSettings mSettings;
  int mBatchSeries;
  int mPhaseSeries;
  bool mObservationsDirty;
  NCIntegralVector<unsigned long, 0> mObservationIDs;
  std::vector<std::string> mSeries;
  bool mDone = false;
};

// The observation series labelled `label`, added when there is none.
int SeriesFor(NCObservations& observations, const std::string& label, ProjectUndo& undo) {
  for (int series = 2; series <= observations.SizeAliases(); ++series) {
    if (observations.GetIDLabelRaw(series) == label) return series;
  }
  undo.AddedSeries(label);
  return observations.AddSecondaryID(label.c_str());
}

// The series that each ID column of `parsed` fills, after the primary series 1. A column keeps
// its values in the series labelled by its header, except the batch (phase) column of a
// project that names its batches (phases) already: that fills the project's series, whatever
// its header, and `notes` says so.
std::vector<int> IDSeries(NCObservations& observations, const ParsedFile& parsed,
                          const CsvImportOptions& options, ProjectUndo& undo,
                          CsvImport::Notes* notes) {
  const std::size_t batchColumn = options.idColumns.size();
  std::vector<int> aliases{1};
  for (std::size_t k = 0; k < parsed.ids.size(); ++k) {
    const std::string& header = parsed.ids[k].header;
    int series = 0;
    if (!options.batchColumn.empty() && k >= batchColumn) {
      series = k == batchColumn ? observations.GetBatchIDRaw() : observations.GetPhaseIDRaw();
      const std::string label = series > 0 ? observations.GetIDLabelRaw(series) : std::string();
      if (series > 0 && label != header && notes) {
        notes->push_back(
            (ExceptionMessage::translate(
                 k == batchColumn ? "The column \"{1}\" names the batches of the series \"{2}\"."
                                  : "The column \"{1}\" names the phases of the series \"{2}\".") %
             header % label)
                .str());
      }
    }
    if (series <= 0) series = SeriesFor(observations, header, undo);
    for (std::size_t j = 0; j < aliases.size(); ++j) {
      if (aliases[j] == series) {
        throw NCError(
            ExceptionMessage::translate(
                "The columns \"{1}\" and \"{2}\" would both fill the ID series \"{3}\".") %
            (j == 0 ? std::string() : parsed.ids[j - 1].header) % header %
            observations.GetIDLabelRaw(series));
      }
    }
    aliases.push_back(series);
  }
  return aliases;
}

int DataSetNumber(const NCProjectBase& project, int wanted) {
  if (wanted > 0) {
    if (project.GetDataContainer(wanted)) {
      throw NCError(ExceptionMessage::translate("Dataset number {1} is in use.") % wanted);
    }
    return wanted;
  }
  int number = 1;
  while (project.GetDataContainer(number)) ++number;
  return number;
}

[[noreturn]] void ThrowRefused(const std::string& name) {
  throw NCError(ExceptionMessage::translate("The project refused the new dataset \"{1}\".") % name);
}

// The rows of a batch file: the batch of each row and the batch names, or nothing.
struct BatchRows {
  std::vector<std::size_t> batchOfRow;
  std::vector<std::string> batches;
};

// The rows of a dataset that new rows join: their names are taken, except those of the rows of
// the batches `replaced`, which go.
struct JoinedRows {
  const NCDataSet* dataSet = nullptr;
  std::unordered_set<std::string> replaced;
};

// The names among `wanted` that rows of `joined` have: one pass over its rows, looking each up
// in a table of the wanted names, which are few.
NameSet TakenNames(const JoinedRows& joined, const std::vector<std::string>& wanted) {
  NameSet taken;
  if (!joined.dataSet) return taken;
  const NameSet asked(wanted.begin(), wanted.end());
  const NCObservations& observations = joined.dataSet->GetProject()->GetObservations();
  for (int row = 1; row <= joined.dataSet->SizeObservations(); ++row) {
    const ObservationInfo* info = joined.dataSet->GetObservationInfo(row);
    if (!info || asked.count(info->GetUserID(1)) == 0) continue;
    if (joined.replaced.count(info->GetBatchName(observations)) == 0) {
      taken.insert(info->GetUserID(1));
    }
  }
  return taken;
}

// The rows' records, added to the project: named by the first ID column (or by batch and
// position, or by row number), unique within the dataset (`joined` included), with their
// secondary IDs.
VarObsInfoVector<ObservationInfo> AddRows(NCProjectBase& project, const ParsedFile& parsed,
                                          const std::vector<int>& obsAliases,
                                          const CsvImportOptions& options,
                                          const BatchRows& batchRows, const JoinedRows& joined,
                                          ProjectUndo& undo) {
  NCObservations& observations = project.GetObservations();
  std::size_t seriesCount = 1;
  for (const int series : obsAliases) {
    seriesCount = std::max(seriesCount, static_cast<std::size_t>(series));
  }
  const bool isBatch = !options.batchColumn.empty();
  VarObsInfoVector<ObservationInfo> infos;
  infos.reserve(parsed.rows);
  observations.Reserve(parsed.rows);
  std::vector<std::string> wanted = isBatch && options.idColumns.empty()
                                        ? BatchPrimaryIDs(batchRows.batchOfRow, batchRows.batches)
                                        : WantedPrimaryIDs(parsed, !options.idColumns.empty());
  // Mostly every wanted ID differs from the others: then they are taken as they are.
  NameSet taken = TakenNames(joined, wanted);
  const bool distinct = taken.empty() && AreAllDistinct(wanted);
  UniqueNamer names(std::move(taken));
  std::vector<std::string> ids(seriesCount);
  NCProgress progress(NCMessages::Translate("Adding the observations"), 0,
                      static_cast<float>(parsed.rows), false, false, true);
  for (std::size_t row = 0; row < parsed.rows; ++row) {
    progress.SetValue(static_cast<float>(row));
    ids[0] = distinct ? std::move(wanted[row]) : names.Make(wanted[row]);
    for (std::size_t k = 0; k < parsed.ids.size(); ++k) {
      ids[static_cast<std::size_t>(obsAliases[k + 1] - 1)] = parsed.ids[k].Get(row);
    }
    const unsigned long id = project.CreateUniqueID();
    infos.push_back(observations.Add(std::make_unique<ObservationInfo>(ids, id), nullptr));
    undo.AddedObservation(id);
  }
  progress.SetValue(static_cast<float>(parsed.rows));
  return infos;
}

// The content of a file as a dataset of the project that is not stored yet: its variables and
// row records are in the project, and go again unless `Done` is called.
struct Staged {
  Staged(NCProjectBase& project, bool renameClashes)
      : undo(project), variables(project, renameClashes) {}
  void Done() {
    variables.Done();
    undo.Done();
  }
  ProjectUndo undo;
  ImportVariables variables;
  boost::shared_ptr<NCDataSet> dataSet;  // goes first, before the records it points to
};

// Stages the content of `parsed` as dataset `number`; its rows' names avoid those of `joined`.
void Stage(const boost::shared_ptr<NCProjectBase>& project, ParsedFile& parsed,
           const std::string& name, int number, const std::string& importLog,
           const CsvImportOptions& options, const BatchRows& batchRows, const JoinedRows& joined,
           CsvImport::Notes* notes, Staged& staged) {
  NCObservations& observations = project->GetObservations();
  const NCIntegralVector<unsigned long, 0> varIDs =
      staged.variables.Take(parsed.columns, parsed.values);
  const std::vector<int> obsAliases = IDSeries(observations, parsed, options, staged.undo, notes);
  VarObsInfoVector<ObservationInfo> infos =
      AddRows(*project, parsed, obsAliases, options, batchRows, joined, staged.undo);
  staged.dataSet = NCDataSet::Create(project, name.c_str(), number, std::move(parsed.values),
                                     std::move(infos), &varIDs, obsAliases, std::vector<int>{1},
                                     importLog.c_str(), nullptr, nullptr);
  if (!options.batchColumn.empty()) {
    const std::size_t batchColumn = options.idColumns.size();
    const int phaseSeries = options.phaseColumn.empty() ? 0 : obsAliases[batchColumn + 2];
    BatchUtilities::MakeBatchDataSet(*staged.dataSet, obsAliases[batchColumn + 1], phaseSeries);
  }
}

boost::shared_ptr<NCDataSet> Commit(const boost::shared_ptr<NCProjectBase>& project,
                                    ParsedFile& parsed, const std::string& name, int number,
                                    const std::string& importLog, const CsvImportOptions& options,
                                    const BatchRows& batchRows, CsvImport::Notes* notes) {
  Staged staged(*project, options.renameClashes);
  Stage(project, parsed, name, number, importLog, options, batchRows, JoinedRows(), notes, staged);
  // The new dataset must pass the project's change check, without asking the user.
  {
    MuteUserComm mute;
    const ScopedUserComm quiet(&mute);
    if (!project->CanChangeVariables(number, staged.dataSet->GetVarIDs())) ThrowRefused(name);
  }
  if (!project->SaveDataSet(staged.dataSet)) ThrowRefused(name);
  staged.Done();
  return staged.dataSet;
}

// The names of `variables` (record IDs) in the project, joined by ", ".
std::string VariableNames(const NCVariables& variables, const std::vector<unsigned long>& ids) {
  std::string names;
  for (const unsigned long id : ids) {
    if (!names.empty()) names += ", ";
    const VariableInfo* variable = variables[id];
    names += variable ? variable->GetUserID(1) : std::to_string(id);
  }
  return names;
}

// Appends the batches of `parsed` to `dataSet`, as `CsvImport::AppendText` describes.
std::string Append(NCDataSet& dataSet, ParsedFile& parsed, const CsvImportOptions& options,
                   const BatchRows& batchRows, bool replace, CsvImport::Notes* notes) {
  const boost::shared_ptr<NCProjectBase> project = dataSet.GetProject();
  const NCStringVector names = dataSet.GetBatchInfoVector()->GetBatchNames();
  const std::unordered_set<std::string> held(names.GetVector().begin(), names.GetVector().end());
  JoinedRows joined;
  joined.dataSet = &dataSet;
  std::vector<std::string> present;
  for (const std::string& batch : batchRows.batches) {
    if (held.count(batch) == 0) continue;
    if (!replace) {
      throw NCError(ExceptionMessage::translate("Dataset {1} \"{2}\" holds the batch \"{3}\" "
                                                "already: import with --replace to replace it.") %
                    dataSet.GetNumber() % dataSet.GetName() % batch);
    }
    present.push_back(batch);
    joined.replaced.insert(batch);
  }

  Staged staged(*project, options.renameClashes);
  Stage(project, parsed, dataSet.GetName(), dataSet.GetNumber(), std::string(), options, batchRows,
        joined, notes, staged);
  const NCIntegralVector<unsigned long, 0> before = dataSet.GetVarIDs();
  const NCIntegralVector<unsigned long, 0> file = staged.dataSet->GetVarIDs();
  std::vector<unsigned long> added;
  std::vector<unsigned long> lacking;
  for (const unsigned long id : file) {
    if (std::find(before.begin(), before.end(), id) == before.end()) added.push_back(id);
  }
  for (const unsigned long id : before) {
    if (std::find(file.begin(), file.end(), id) == file.end()) lacking.push_back(id);
  }

  std::string log;
  if (!present.empty()) log = BatchCommands::DeleteBatches(dataSet, present, {});
  {
    MuteUserComm mute;
    const ScopedUserComm quiet(&mute);
    if (!dataSet.Merge(*staged.dataSet, true, false, nullptr)) {
      throw NCError(ExceptionMessage::translate("The project refused the change of dataset {1}.") %
                    dataSet.GetNumber());
    }
  }
  staged.Done();
  // What the dataset computes from its own columns covers the new rows too.
  const NCVariables& variables = project->GetVariables();
  const NCIntegralVector<unsigned long, 0> columns = dataSet.GetVarIDs();
  for (const unsigned long id : columns) {
    const VariableInfo* variable = variables[id];
    if (variable && variable->GetUserID(1) == BatchInfo::GetGeneratedTimeVariableName()) {
      BatchImportSettings settings(project->GetBatchImportSettings());
      Smooth::CreateAndInsert_DollarTime(dataSet.shared_from_this(), &settings);
      project->SetBatchImportSettings(settings);
      break;
    }
  }
  if (NCDataSet::HasGeneratedVariables(*project, columns)) {
    const int count = GenVarFormula::RecomputeGeneratedVariables(dataSet);
    if (notes) {
      notes->push_back(
          (ExceptionMessage::translate("Recomputed {1} generated variables.") % count).str());
    }
  }
  if (notes && !added.empty()) {
    notes->push_back(
        (ExceptionMessage::translate("New variables, missing in the earlier observations: {1}.") %
         VariableNames(variables, added))
            .str());
  }
  if (notes && !lacking.empty()) {
    notes->push_back(
        (ExceptionMessage::translate("Not in the file, missing in the new observations: {1}.") %
         VariableNames(variables, lacking))
            .str());
  }
  return log + (ExceptionMessage::translate("Appended {1} batches, {2} observations.") %
                batchRows.batches.size() % parsed.rows)
                   .str();
}

}  // namespace
}  // namespace detail

std::string CsvImport::BatchRowID(const std::string& batch, std::size_t position,
                                  std::size_t longest) {
  const std::size_t width = std::max<std::size_t>(3, std::to_string(longest).size());
  const std::string digits = std::to_string(position);
  std::string id;
  id.reserve(batch.size() + 1 + std::max(width, digits.size()));
  id.append(batch).append(1, '_');
  if (digits.size() < width) id.append(width - digits.size(), '0');
  return id.append(digits);
}

boost::shared_ptr<NCDataSet> CsvImport::ImportFile(const boost::shared_ptr<NCProjectBase>& project,
                                                   const std::string& path,
                                                   const CsvImportOptions& options, Notes* notes) {
  CheckCsvCharacters(options.separator, options.decimal);
  const MappedFile file(path);
  return ImportText(project, file.GetText(), path, options, notes);
}

boost::shared_ptr<NCDataSet> CsvImport::ImportText(const boost::shared_ptr<NCProjectBase>& project,
                                                   std::string_view text,
                                                   const std::string& sourceName,
                                                   const CsvImportOptions& options, Notes* notes) {
  if (!project) throw InvalidArgument("CsvImport::ImportText: no project");
  CheckCsvCharacters(options.separator, options.decimal);
  const int number = detail::DataSetNumber(*project, options.number);
  detail::ParsedFile parsed = detail::Parse(text, sourceName, options);
  detail::BatchRows batchRows;
  if (!options.batchColumn.empty()) {
    batchRows.batchOfRow =
        detail::GroupBatches(parsed, text, sourceName, options, batchRows.batches);
  } else if (!options.phaseColumn.empty()) {
    throw NCError(ExceptionMessage::translate("A phase column needs a batch column."));
  }
  const std::string name =
      !options.name.empty() ? options.name : std::filesystem::path(sourceName).stem().string();
  const std::string log =
      (boost::format(NCMessages::Translate("Imported from %1%: %2% observations, %3% variables.")) %
       sourceName % parsed.rows % parsed.columns.size())
          .str();
  return detail::Commit(project, parsed, name, number, log, options, batchRows, notes);
}

void CsvImport::AppendFile(NCDataSet& dataSet, const std::string& path,
                           const CsvImportOptions& options, bool replace, Notes* notes) {
  CheckCsvCharacters(options.separator, options.decimal);
  const MappedFile file(path);
  AppendText(dataSet, file.GetText(), path, options, replace, notes);
}

void CsvImport::AppendText(NCDataSet& dataSet, std::string_view text, const std::string& sourceName,
                           CsvImportOptions options, bool replace, Notes* notes) {
  CheckCsvCharacters(options.separator, options.decimal);
  const boost::shared_ptr<NCProjectBase> project = dataSet.GetProject();
  if (!project) throw InvalidArgument("CsvImport::AppendText: a dataset without its project");
  if (!dataSet.GetBatchInfoVector()) {
    throw NCError(ExceptionMessage::translate(
                      "Dataset {1} \"{2}\" is not a batch dataset: batches can only be appended to "
                      "a batch dataset.") %
                  dataSet.GetNumber() % dataSet.GetName());
  }
  // Without --batch (--phase) the columns are those the project names its series after.
  const NCObservations& observations = project->GetObservations();
  if (options.batchColumn.empty() && observations.GetBatchIDRaw() > 0) {
    options.batchColumn = observations.GetIDLabelRaw(observations.GetBatchIDRaw());
  }
  if (options.phaseColumn.empty() && observations.GetPhaseIDRaw() > 0 &&
      dataSet.GetPhaseInfoVector()) {
    options.phaseColumn = observations.GetIDLabelRaw(observations.GetPhaseIDRaw());
  }
  detail::ParsedFile parsed = detail::Parse(text, sourceName, options);
  detail::BatchRows batchRows;
  batchRows.batchOfRow = detail::GroupBatches(parsed, text, sourceName, options, batchRows.batches);
  const std::string log = detail::Append(dataSet, parsed, options, batchRows, replace, notes);
  if (notes) notes->insert(notes->begin(), log);
}

}  // namespace ncds::tool
