// Feeds arbitrary bytes to the readers of a compound dataset's description (NCCOMPDS), of
// auxiliary data (AUXDATA) and of the two project collections that hold them in a project file
// (NCCOMPOUNDS, NCAUXILIARY). Whatever reads must write and read back to the same bytes, and a
// compound read must present a small project's datasets consistently, values included, whatever
// members it names: no crash, no hang, no allocation beyond what the input's size justifies.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

#include "FuzzRoundTrip.h"
#include "ncds/dataset/AuxiliaryData.h"
#include "ncds/dataset/CompoundDataset.h"
#include "ncds/dataset/FullCompoundDataset.h"
#include "ncds/ncds.h"
#include "ncds/project/detail/AuxiliaryDataStream.h"
#include "ncds/project/detail/CompoundDatasetsStream.h"

namespace {

using ncds::fuzz::RoundTrip;

// A project with datasets 1 (two rows over A and B) and 2 (one row over B and C), and a
// compound under number 3, so that members may name datasets, a compound or nothing.
boost::shared_ptr<NCProject> MakeProject() {
  auto project = NCProject::Create();
  const char* names[] = {"A", "B", "C"};
  for (unsigned long id = 1; id <= 3; ++id) {
    project->GetVariables().Add(std::make_unique<QuantitativeVariableInfo>(names[id - 1], id));
  }
  for (int number = 1; number <= 2; ++number) {
    VarObsInfoVector<ObservationInfo> rows;
    const int count = number == 1 ? 2 : 1;
    NCDataMatrix<float> values(static_cast<std::size_t>(count), 2, static_cast<float>(number));
    for (int i = 0; i < count; ++i) {
      rows.push_back(project->GetObservations().Add(std::make_unique<ObservationInfo>(
          ("o" + std::to_string(number) + std::to_string(i)).c_str(), project->CreateUniqueID())));
    }
    NCIntegralVector<unsigned long, 0> columns;
    columns.push_back(static_cast<unsigned long>(number));
    columns.push_back(static_cast<unsigned long>(number) + 1);
    project->SaveDataSet(NCDataSet::Create(project, "D", number, &values, std::move(rows), &columns,
                                           {1}, {1}, "", nullptr, nullptr));
  }
  project->SetCompoundDataset(CompoundDataset(project, "C", 3, {1, 2}));
  return project;
}

// The compound's rows are its present members' rows, its values fill its shape, and its cells
// read without a crash.
void Present(const boost::shared_ptr<NCProject>& project, const CompoundDataset& compound) {
  const auto shared = boost::make_shared<CompoundDataset>(compound);
  int rows = 0;
  bool complete = shared->GetMissingMembers().empty();
  for (const int member : shared->GetMembers()) {
    const auto container = project->GetDataContainer(member);
    if (container && !boost::dynamic_pointer_cast<CompoundDataset const>(container)) {
      rows += container->SizeObservations();
    }
  }
  if (shared->SizeObservations() != (complete ? rows : 0)) std::abort();
  const FullCompoundDataset full(project, shared, project->GetDataSetLoader());
  const NCDataMatrix<float> values = full.GetData(false, nullptr);
  if (values.SizeRows() != static_cast<std::size_t>(full.SizeObservations()) ||
      values.SizeColumns() != static_cast<std::size_t>(full.SizeVariables())) {
    std::abort();
  }
  for (int i = 0; i <= full.SizeObservations() + 1; ++i) {
    for (int j = 0; j <= full.SizeVariables() + 1; ++j) full.GetStrValue(i, j);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const boost::shared_ptr<NCProject> project = MakeProject();
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  {
    CompoundDataset object(project);
    CompoundDataset again(project);
    if (RoundTrip(bytes, object, again)) Present(project, object);
  }
  {
    AuxiliaryData object;
    AuxiliaryData again;
    if (RoundTrip(bytes, object, again) && !(object == again)) std::abort();
  }
  {
    ncds::detail::CompoundDatasetsStream object(project);
    ncds::detail::CompoundDatasetsStream again(project);
    RoundTrip(bytes, object, again);
  }
  {
    ncds::detail::AuxiliaryDataStream object;
    ncds::detail::AuxiliaryDataStream again;
    RoundTrip(bytes, object, again);
  }
  return 0;
}
