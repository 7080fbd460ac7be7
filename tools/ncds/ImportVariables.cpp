#include "tools/ncds/ImportVariables.h"

#include <boost/shared_ptr.hpp>
#include <cmath>
#include <memory>
#include <unordered_set>
#include <utility>

#include "ncds/dataset/NCProjectBase.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/Messages.h"
#include "ncds/foundations/NCStringVector.h"
#include "ncds/foundations/VxStdString.h"
#include "ncds/metadata/DateTimeVariableInfo.h"
#include "ncds/metadata/InfosByUserID.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/QualitativeVariableInfo.h"
#include "ncds/metadata/QuantitativeVariableInfo.h"

namespace ncds::tool {
namespace detail {
namespace {

constexpr float kMissing = -99.0F;

CsvColumn::Kind KindOf(const VariableInfo& variable) {
  if (variable.AsDateTimeVariableInfo()) return CsvColumn::Kind::eDateTime;
  if (variable.IsQualitative()) return CsvColumn::Kind::eQualitative;
  return CsvColumn::Kind::eQuantitative;
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

// Appends to `variable` the levels of `column` it lacks and recodes the column's `rows` codes
// to the variable's.
void MergeLevels(CsvColumn& column, QualitativeVariableInfo& variable, float* values,
                 std::size_t rows) {
  const std::vector<std::string> levels = column.TakeLevels();
  std::vector<float> code(levels.size());
  bool same = true;
  for (std::size_t k = 0; k < levels.size(); ++k) {
    float found = variable.Encode(levels[k].c_str());
    if (!(found >= 1.0F && found <= static_cast<float>(variable.SizeSettings()))) {
      variable.AppendSetting(levels[k].c_str());
      found = static_cast<float>(variable.SizeSettings());
    }
    code[k] = found;
    same = same && found == static_cast<float>(k + 1);
  }
  if (same) return;
  for (std::size_t i = 0; i < rows; ++i) {
    const float value = values[i];
    if (value >= 1.0F && value <= static_cast<float>(code.size())) {
      values[i] = code[static_cast<std::size_t>(value) - 1];
    }
  }
}

// Counts the `rows` date-times of `column` (from its own offset, in its own unit) from the
// offset of `variable` in the variable's unit.
void Recount(const CsvColumn& column, const DateTimeVariableInfo& variable, float* values,
             std::size_t rows) {
  const DateTimeVariableInfo own(std::string(), 0, VxTimeUtl::eParseISO8601, std::string(),
                                 column.GetDatasetFormat(), column.GetOffset(),
                                 column.GetAccuracy());
  const long double shift =
      static_cast<long double>(column.GetOffset().GetEpochMicroseconds() -
                               variable.GetDateTimeOffset().GetEpochMicroseconds()) /
      1e6L;
  const long double from = own.ToSeconds(1.0F);
  const long double to = variable.ToSeconds(1.0F);
  if (!(to > 0)) return;
  for (std::size_t i = 0; i < rows; ++i) {
    if (values[i] == kMissing) continue;
    const auto value = static_cast<float>((shift + values[i] * from) / to);
    // A time exactly at the missing code stays a value.
    values[i] = value == kMissing ? std::nextafter(kMissing, 0.0F) : value;
  }
}

using NameSet = std::unordered_set<std::string, VxStdString::NoCaseHash, VxStdString::NoCaseEqual>;

// What a column goes into: an existing variable, or a new one of this name.
struct Choice {
  VariableInfo* existing = nullptr;
  std::string name;
};

}  // namespace
}  // namespace detail

ImportVariables::ImportVariables(NCProjectBase& project, bool renameClashes)
    : mProject(project),
      mRenameClashes(renameClashes),
      mVariablesDirty(project.GetVariables().IsDirty()) {}

ImportVariables::~ImportVariables() {
  if (mDone) return;
  try {
    NCVariables& variables = mProject.GetVariables();
    for (const auto& [id, count] : mGrown) {
      VariableInfo* variable = variables[id];
      auto* qualitative = variable ? dynamic_cast<QualitativeVariableInfo*>(variable) : nullptr;
      if (qualitative) qualitative->TruncateSettings(count);
    }
    variables.DeleteVarObsInfos(mAdded);
    variables.SetIsDirty(mVariablesDirty);
  } catch (...) {
    // Only memory can run out here; the error that started the undo is the one to report.
  }
}

std::string ImportVariables::KindName(CsvColumn::Kind kind) {
  switch (kind) {
    case CsvColumn::Kind::eQualitative:
      return NCMessages::Translate("variable kind", "qualitative");
    case CsvColumn::Kind::eDateTime:
      return NCMessages::Translate("variable kind", "date-time");
    case CsvColumn::Kind::eQuantitative:
      break;
  }
  return NCMessages::Translate("variable kind", "quantitative");
}

std::string ImportVariables::KindName(const VariableInfo& variable) {
  return KindName(detail::KindOf(variable));
}

NCIntegralVector<unsigned long, 0> ImportVariables::Take(std::vector<CsvColumn>& columns,
                                                         NCDataMatrix<float>& values) {
  namespace d = detail;
  NCVariables& variables = mProject.GetVariables();
  const std::string defaultName =
      NCMessages::Translate("Default variable name (short, no spaces)", "New_Var");

  // First every column's choice, so that a clash refuses before anything changes.
  std::vector<d::Choice> choices(columns.size());
  {
    const boost::shared_ptr<InfosByUserID> lookup = variables.GetInfosByUserID(1);
    d::NameSet taken;  // the names this dataset's columns have
    for (std::size_t k = 0; k < columns.size(); ++k) {
      const CsvColumn& column = columns[k];
      const std::string wanted = column.GetName().empty() ? defaultName : column.GetName();
      for (unsigned long suffix = 0;; ++suffix) {
        std::string candidate = suffix == 0 ? wanted : wanted + "_" + std::to_string(suffix);
        if (taken.count(candidate) != 0) continue;
        const VarObsInfo* found = lookup->GetInfo(candidate);
        VariableInfo* existing = found ? variables[found->GetUniqueID()] : nullptr;
        if (existing && d::KindOf(*existing) != column.GetKind()) {
          if (suffix == 0 && !mRenameClashes) {
            throw NCError(ExceptionMessage::translate(
                              "The column \"{1}\" is {2}, but the project's variable \"{3}\" is "
                              "{4}: rename the column, or import with --rename-clashes.") %
                          column.GetName() % KindName(column.GetKind()) % existing->GetUserID(1) %
                          KindName(*existing));
          }
          continue;
        }
        choices[k] = {existing, candidate};
        taken.insert(std::move(candidate));
        break;
      }
    }
  }

  NCIntegralVector<unsigned long, 0> ids;
  ids.reserve(columns.size());
  const std::size_t rows = values.SizeRows();
  for (std::size_t k = 0; k < columns.size(); ++k) {
    CsvColumn& column = columns[k];
    VariableInfo* existing = choices[k].existing;
    float* cells = rows > 0 ? values.ColumnData(k) : nullptr;
    if (!existing) {
      const unsigned long id = mProject.CreateUniqueID();
      variables.Add(d::MakeVariable(column, choices[k].name, id), nullptr);
      mAdded.push_back(id);
      ids.push_back(id);
      continue;
    }
    if (auto* qualitative = dynamic_cast<QualitativeVariableInfo*>(existing)) {
      const int before = qualitative->SizeSettings();
      d::MergeLevels(column, *qualitative, cells, rows);
      if (qualitative->SizeSettings() != before) {
        mGrown.emplace_back(existing->GetUniqueID(), before);
        variables.SetIsDirty(true);
      }
    } else if (const DateTimeVariableInfo* dateTime = existing->AsDateTimeVariableInfo()) {
      d::Recount(column, *dateTime, cells, rows);
    }
    ids.push_back(existing->GetUniqueID());
  }
  return ids;
}

}  // namespace ncds::tool
