#include "ncds/dataset/FullCompoundDataset.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "ncds/dataset/CompoundDataset.h"
#include "ncds/dataset/NCDataSet.h"
#include "ncds/foundations/Exception.h"

namespace ncds::detail {
namespace {

boost::shared_ptr<CompoundDataset const> RequireCompound(
    boost::shared_ptr<CompoundDataset const> compound) {
  if (!compound) throw InvalidArgument("FullCompoundDataset: no compound dataset");
  return compound;
}

// Whether every loaded member has the rows and columns the compound gives it.
bool Matches(const CompoundDataset& compound,
             const std::vector<boost::shared_ptr<NCDataSet const>>& dataSets) {
  if (!compound.GetMissingMembers().empty()) return false;
  const NCIntegralVector<unsigned long, 0> ids = compound.GetVarIDs();
  const std::unordered_set<unsigned long> columns(ids.begin(), ids.end());
  const std::vector<int>& members = compound.GetMembers();
  for (std::size_t m = 0; m < members.size(); ++m) {
    const NCDataSet& dataSet = *dataSets[m];
    int first = 0;
    int count = 0;
    if (!compound.GetMemberRows(members[m], first, count) || count != dataSet.SizeObservations()) {
      return false;
    }
    for (const unsigned long id : dataSet.GetVarIDs()) {
      if (columns.count(id) == 0) return false;
    }
    for (std::size_t j = 0; j < ids.size(); ++j) {
      const int column = compound.GetMemberColumn(members[m], static_cast<int>(j) + 1);
      if (column > 0 && dataSet.GetVarID(column) != ids[j]) return false;
    }
  }
  return true;
}

}  // namespace
}  // namespace ncds::detail

FullCompoundDataset::FullCompoundDataset(boost::shared_ptr<NCProjectBase> project,
                                         boost::shared_ptr<CompoundDataset const> compound,
                                         Loader loader)
    : NCFullDataContainerBase(std::move(project)),
      mCompound(ncds::detail::RequireCompound(std::move(compound))),
      mLoader(std::move(loader)) {
  if (!mLoader) throw InvalidArgument("FullCompoundDataset: no loader");
}

FullCompoundDataset::~FullCompoundDataset() = default;

int FullCompoundDataset::GetNumber() const { return mCompound->GetNumber(); }

int FullCompoundDataset::GetDataType() const { return mCompound->GetDataType(); }

const VarObsInfoVector<ObservationInfo>& FullCompoundDataset::GetObservationInfoVector() const {
  return mCompound->GetObservationInfoVector();
}

NCIntegralVector<unsigned long, 0> FullCompoundDataset::GetVarIDs() const {
  return mCompound->GetVarIDs();
}

int FullCompoundDataset::SizeObservations() const { return mCompound->SizeObservations(); }

int FullCompoundDataset::SizeVariables() const { return mCompound->SizeVariables(); }

const std::vector<int>& FullCompoundDataset::GetUsedObsAliases() const {
  return mCompound->GetUsedObsAliases();
}

const std::vector<int>& FullCompoundDataset::GetUsedVarAliases() const {
  return mCompound->GetUsedVarAliases();
}

unsigned long FullCompoundDataset::GetVarID(int index) const { return mCompound->GetVarID(index); }

const ObservationInfo* FullCompoundDataset::GetObservationInfo(int index) const {
  return mCompound->GetObservationInfo(index);
}

const std::string& FullCompoundDataset::GetVariableID(int index, int aliasSeries) const {
  return mCompound->GetVariableID(index, aliasSeries);
}

boost::shared_ptr<BatchInfoVector const> FullCompoundDataset::GetBatchInfoVector() const {
  return mCompound->GetBatchInfoVector();
}

std::string FullCompoundDataset::GetStrValue(int obs, int var) const {
  int member = 0;
  int row = 0;
  if (!mCompound->LocateRow(obs, member, row)) return std::string();
  const int column = mCompound->GetMemberColumn(member, var);
  if (column == 0) return std::string();
  const unsigned long id = mCompound->GetVarID(var);
  const auto dataSet = mLoader(member);
  if (!dataSet || row > dataSet->SizeObservations() || dataSet->GetVarID(column) != id) {
    return std::string();
  }
  return dataSet->GetStrValue(row, column);
}

NCDataMatrix<float> FullCompoundDataset::DoGetData(
    bool centered, boost::shared_ptr<DefaultCenterValues const> defaults) const {
  const CompoundDataset& compound = *mCompound;
  if (!GetProject() || !compound.GetMissingMembers().empty()) return NCDataMatrix<float>();
  const std::vector<int> members = compound.GetMembers();
  std::vector<boost::shared_ptr<NCDataSet const>> dataSets;
  dataSets.reserve(members.size());
  for (const int member : members) {
    auto dataSet = mLoader(member);
    if (!dataSet) {
      throw NCError(
          ExceptionMessage::translate("Dataset {1} of compound dataset {2} could not be loaded.") %
          member % compound.GetNumber());
    }
    dataSets.push_back(std::move(dataSet));
  }
  // Loading changes what the project hands out for a member (its description becomes the
  // dataset), and a loaded member may have been edited since the compound was worked out.
  if (!ncds::detail::Matches(compound, dataSets)) {
    compound.Refresh();
    if (!compound.GetMissingMembers().empty()) return NCDataMatrix<float>();
    if (!ncds::detail::Matches(compound, dataSets)) {
      throw NCInternalError("FullCompoundDataset: a loaded member of compound dataset " +
                            std::to_string(compound.GetNumber()) +
                            " does not match the project's dataset");
    }
  }

  const auto columns = static_cast<std::size_t>(compound.SizeVariables());
  NCDataMatrix<float> stacked(static_cast<std::size_t>(compound.SizeObservations()), columns);
  for (std::size_t m = 0; m < members.size(); ++m) {
    int first = 0;
    int count = 0;
    compound.GetMemberRows(members[m], first, count);
    if (count == 0) continue;
    const NCDataMatrix<float> values = dataSets[m]->GetData(centered, defaults);
    if (values.SizeRows() != static_cast<std::size_t>(count) ||
        values.SizeColumns() != static_cast<std::size_t>(dataSets[m]->SizeVariables())) {
      throw NCInternalError("FullCompoundDataset: dataset " + std::to_string(members[m]) +
                            " answered values of another shape");
    }
    for (std::size_t j = 0; j < columns; ++j) {
      const int column = compound.GetMemberColumn(members[m], static_cast<int>(j) + 1);
      if (column == 0) continue;  // the member lacks the variable: missing values stay
      const float* from = values.ColumnData(static_cast<std::size_t>(column) - 1);
      std::copy(from, from + count, stacked.ColumnData(j) + (first - 1));
    }
  }
  return stacked;
}
