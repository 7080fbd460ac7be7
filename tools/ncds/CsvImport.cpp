#include "tools/ncds/CsvImport.h"

#include <algorithm>
#include <boost/format.hpp>
#include <climits>
#include <cstring>
#include <filesystem>
#include <memory>
#include <unordered_map>
#include <utility>
#include <vector>

#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCProjectBase.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/Messages.h"
#include "ncds/foundations/NCDataMatrix.h"
#include "ncds/foundations/NCProgress.h"
#include "ncds/foundations/NCStringVector.h"
#include "ncds/foundations/UserComm.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/metadata/DateTimeVariableInfo.h"
#include "ncds/metadata/InfosByUserID.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/ObservationInfo.h"
#include "ncds/metadata/QualitativeVariableInfo.h"
#include "ncds/metadata/QuantitativeVariableInfo.h"
#include "tools/ncds/CsvCellParser.h"
#include "tools/ncds/CsvColumn.h"
#include "tools/ncds/CsvReader.h"
#include "tools/ncds/CsvTailParser.h"
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
  const std::vector<std::size_t> idPositions = FindIDColumns(header, options.idColumns, source);

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

// Primary IDs made unique as `VarObs::GetUniquePrimaryID` makes them against a lookup that
// receives every new record: `wanted` when free, else the first free of wanted_1, wanted_2,
// ... (ignoring case). The suffix tried first for a name is the one after the last given to
// it, which is the same answer (records are only added meanwhile) without trying the taken
// ones again: many equal IDs cost one lookup each, not one per earlier duplicate.
class UniqueNamer {
 public:
  explicit UniqueNamer(const InfosByUserID& lookup) : mLookup(lookup) {}

  std::string Make(const std::string& wanted) {
    if (!mLookup.GetInfo(wanted)) return wanted;
    unsigned long& suffix = mLastSuffix[wanted];
    std::string candidate;
    do {
      candidate = wanted + "_" + std::to_string(++suffix);
    } while (mLookup.GetInfo(candidate));
    return candidate;
  }

 private:
  const InfosByUserID& mLookup;
  std::unordered_map<std::string, unsigned long, VxStdString::NoCaseHash, VxStdString::NoCaseEqual>
      mLastSuffix;
};

// The primary ID each row asks for: its text in the first ID column, or its row number when
// that is empty or there is none.
std::vector<std::string> WantedPrimaryIDs(const ParsedFile& parsed) {
  std::vector<std::string> wanted(parsed.rows);
  for (std::size_t row = 0; row < parsed.rows; ++row) {
    if (!parsed.ids.empty()) wanted[row] = parsed.ids[0].Get(row);
    if (wanted[row].empty()) wanted[row] = std::to_string(row + 1);
  }
  return wanted;
}

// True when no two of `wanted` are equal ignoring case and `existing` holds none of them:
// found by sorting their hashes, not by a growing table.
bool AreAllFree(const std::vector<std::string>& wanted, const InfosByUserID& existing) {
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
  if (existing.size() > 0) {
    for (const std::string& id : wanted) {
      if (existing.GetInfo(id)) return false;
    }
  }
  return true;
}

// What an import has added to the project, taken out again unless the import completes.
class ProjectUndo {
 public:
  ProjectUndo(NCVariables& variables, NCObservations& observations)
      : mVariables(variables),
        mObservations(observations),
        mVariablesDirty(variables.IsDirty()),
        mObservationsDirty(observations.IsDirty()) {}
  ~ProjectUndo() {
    if (mDone) return;
    try {
      mObservations.DeleteVarObsInfos(mObservationIDs);
      mVariables.DeleteVarObsInfos(mVariableIDs);
      for (auto label = mSeries.rbegin(); label != mSeries.rend(); ++label) {
        mObservations.RemoveSecondaryID(label->c_str());
      }
      mVariables.SetIsDirty(mVariablesDirty);
      mObservations.SetIsDirty(mObservationsDirty);
    } catch (...) {
      // Only memory can run out here; the error that started the undo is the one to report.
    }
  }
  ProjectUndo(const ProjectUndo&) = delete;
  ProjectUndo& operator=(const ProjectUndo&) = delete;

  void AddedVariable(unsigned long id) { mVariableIDs.push_back(id); }
  void AddedObservation(unsigned long id) { mObservationIDs.push_back(id); }
  void AddedSeries(const std::string& label) { mSeries.push_back(label); }
  void Done() { mDone = true; }

 private:
  NCVariables& mVariables;
  NCObservations& mObservations;
  bool mVariablesDirty;
  bool mObservationsDirty;
  NCIntegralVector<unsigned long, 0> mVariableIDs;
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

std::unique_ptr<VariableInfo> MakeVariable(CsvColumn& column, const std::string& name,
                                           unsigned long uniqueID) {
  switch (column.GetKind()) {
    case CsvColumn::Kind::eQualitative: {
      const NCStringVector levels(column.TakeLevels());
      return std::make_unique<QualitativeVariableInfo>(name, uniqueID, &levels);
    }
    case CsvColumn::Kind::eDateTime:
      return std::make_unique<DateTimeVariableInfo>(name, uniqueID, VxTimeUtl::eParseISO8601,
                                                    std::string(), column.GetDatasetFormat(),
                                                    column.GetOffset(), column.GetAccuracy());
    case CsvColumn::Kind::eQuantitative:
      break;
  }
  return std::make_unique<QuantitativeVariableInfo>(name, uniqueID);
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

boost::shared_ptr<NCDataSet> Commit(const boost::shared_ptr<NCProjectBase>& project,
                                    ParsedFile& parsed, const std::string& name, int number,
                                    const std::string& importLog) {
  NCVariables& variables = project->GetVariables();
  NCObservations& observations = project->GetObservations();
  ProjectUndo undo(variables, observations);

  std::vector<int> obsAliases{1};
  for (std::size_t k = 1; k < parsed.ids.size(); ++k) {
    obsAliases.push_back(SeriesFor(observations, parsed.ids[k].header, undo));
  }
  std::size_t seriesCount = 1;
  for (const int series : obsAliases) {
    seriesCount = std::max(seriesCount, static_cast<std::size_t>(series));
  }

  NCIntegralVector<unsigned long, 0> varIDs;
  varIDs.reserve(parsed.columns.size());
  {
    // The container's lookup, which each new record enters.
    const boost::shared_ptr<InfosByUserID> lookup = variables.GetInfosByUserID(1);
    UniqueNamer names(*lookup);
    const std::string defaultName =
        NCMessages::Translate("Default variable name (short, no spaces)", "New_Var");
    for (CsvColumn& column : parsed.columns) {
      const unsigned long id = project->CreateUniqueID();
      const std::string wanted = column.GetName().empty() ? defaultName : column.GetName();
      variables.Add(MakeVariable(column, names.Make(wanted), id), lookup.get());
      undo.AddedVariable(id);
      varIDs.push_back(id);
    }
  }

  VarObsInfoVector<ObservationInfo> infos;
  infos.reserve(parsed.rows);
  {
    std::vector<std::string> wanted = WantedPrimaryIDs(parsed);
    const boost::shared_ptr<InfosByUserID> lookup = observations.GetInfosByUserID(1);
    // Mostly every wanted ID is free: then they are taken as they are, and the records need
    // not enter the lookup one by one (the container builds it anew when asked).
    const bool allFree = AreAllFree(wanted, *lookup);
    UniqueNamer names(*lookup);
    std::vector<std::string> ids(seriesCount);
    NCProgress progress(NCMessages::Translate("Adding the observations"), 0,
                        static_cast<float>(parsed.rows), false, false, true);
    for (std::size_t row = 0; row < parsed.rows; ++row) {
      progress.SetValue(static_cast<float>(row));
      ids[0] = allFree ? std::move(wanted[row]) : names.Make(wanted[row]);
      for (std::size_t k = 1; k < parsed.ids.size(); ++k) {
        ids[static_cast<std::size_t>(obsAliases[k] - 1)] = parsed.ids[k].Get(row);
      }
      const unsigned long id = project->CreateUniqueID();
      infos.push_back(observations.Add(std::make_unique<ObservationInfo>(ids, id),
                                       allFree ? nullptr : lookup.get()));
      undo.AddedObservation(id);
    }
    progress.SetValue(static_cast<float>(parsed.rows));
  }

  // The new variables must pass the project's change check, without asking the user.
  {
    MuteUserComm mute;
    const ScopedUserComm quiet(&mute);
    if (!project->CanChangeVariables(number, varIDs)) ThrowRefused(name);
  }
  const boost::shared_ptr<NCDataSet> dataSet = NCDataSet::Create(
      project, name.c_str(), number, std::move(parsed.values), std::move(infos), &varIDs,
      obsAliases, std::vector<int>{1}, importLog.c_str(), nullptr, nullptr);
  if (!project->SaveDataSet(dataSet)) ThrowRefused(name);
  undo.Done();
  return dataSet;
}

}  // namespace
}  // namespace detail

boost::shared_ptr<NCDataSet> CsvImport::ImportFile(const boost::shared_ptr<NCProjectBase>& project,
                                                   const std::string& path,
                                                   const CsvImportOptions& options) {
  CheckCsvCharacters(options.separator, options.decimal);
  const MappedFile file(path);
  return ImportText(project, file.GetText(), path, options);
}

boost::shared_ptr<NCDataSet> CsvImport::ImportText(const boost::shared_ptr<NCProjectBase>& project,
                                                   std::string_view text,
                                                   const std::string& sourceName,
                                                   const CsvImportOptions& options) {
  if (!project) throw InvalidArgument("CsvImport::ImportText: no project");
  CheckCsvCharacters(options.separator, options.decimal);
  const int number = detail::DataSetNumber(*project, options.number);
  detail::ParsedFile parsed = detail::Parse(text, sourceName, options);
  const std::string name =
      !options.name.empty() ? options.name : std::filesystem::path(sourceName).stem().string();
  const std::string log =
      (boost::format(NCMessages::Translate("Imported from %1%: %2% observations, %3% variables.")) %
       sourceName % parsed.rows % parsed.columns.size())
          .str();
  return detail::Commit(project, parsed, name, number, log);
}

}  // namespace ncds::tool
