// The `_ncds` extension module: projects and datasets of the library as Python objects. Values
// reach Python as numpy views of the dataset's own matrix, without a copy; everything a view
// needs stays alive as long as the view does. Library errors arrive as `ncds.Error` with the
// library's message. The pure-Python package `ncds` builds on this module.

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <boost/shared_ptr.hpp>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Handles.h"
#include "ScratchProject.h"

#include "ncds/batch/BatchUtilities.h"
#include "ncds/batch/ClassInfoVector.h"
#include "ncds/batch/DataSetAlignment.h"
#include "ncds/dataset/NCDataSet.h"
#include "ncds/dataset/NCDataSetInfo.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/NCDataMatrix.h"
#include "ncds/metadata/NCObservations.h"
#include "ncds/metadata/NCVariables.h"
#include "ncds/metadata/ObservationInfo.h"
#include "ncds/metadata/QualitativeVariableInfo.h"
#include "ncds/metadata/VariableInfo.h"
#include "ncds/project/NCProject.h"
#include "ncds/project/NCProjectFile.h"
#include "tools/ncds/CsvColumn.h"
#include "tools/ncds/ImportVariables.h"

namespace py = pybind11;

namespace ncds::python {

int FindDataSet(const NCProject& project, const py::object& which) {
  const std::vector<int> numbers = project.GetDataSetNumbers();
  if (py::isinstance<py::int_>(which)) {
    const int number = which.cast<int>();
    for (const int n : numbers) {
      if (n == number) return n;
    }
    throw NCError(ExceptionMessage::translate("The project has no dataset {1}.") % number);
  }
  const std::string name = which.cast<std::string>();
  for (const int n : numbers) {
    const auto info = project.GetDataSetInfo(n);
    if (info && name == info->GetName()) return n;
  }
  throw NCError(ExceptionMessage::translate("The project has no dataset {1}.") % name);
}

void SaveOrThrow(NCProject& project, const DataSetPtr& dataSet) {
  if (!project.SaveDataSet(dataSet)) {
    throw NCError(ExceptionMessage::translate("Dataset {1} could not be saved.") %
                  dataSet->GetNumber());
  }
}

NCDataSet& Own(const ProjectHandle& handle, const DataSetHandle& data) {
  if (data.project != handle.project || !handle.project) {
    throw NCError(ExceptionMessage::translate("The dataset belongs to another project."));
  }
  return *data.dataSet;
}

py::array_t<float> MatrixArray(const NCDataMatrix<float>& matrix, const py::capsule& owner) {
  const auto rows = static_cast<py::ssize_t>(matrix.SizeRows());
  const auto columns = static_cast<py::ssize_t>(matrix.SizeColumns());
  const auto stride = static_cast<py::ssize_t>(matrix.CapacityRows() * sizeof(float));
  const float* cells = rows > 0 && columns > 0 ? matrix.ColumnData(0) : nullptr;
  static const float kEmpty = 0;
  return py::array_t<float>(
      {rows, columns}, {static_cast<py::ssize_t>(sizeof(float)), std::max<py::ssize_t>(stride, 4)},
      cells ? cells : &kEmpty, owner);
}

namespace {

constexpr int kBatchDataType = 32;

py::list ListDataSets(const ProjectHandle& handle) {
  const NCProject& project = handle.Get();
  py::list datasets;
  for (const int number : project.GetDataSetNumbers()) {
    const auto info = project.GetDataSetInfo(number);
    if (!info) continue;
    datasets.append(py::make_tuple(number, std::string(info->GetName()), info->SizeObservations(),
                                   info->SizeVariables(),
                                   (info->GetDataType() & kBatchDataType) ? "batch" : "ordinary"));
  }
  return datasets;
}

DataSetHandle Load(const ProjectHandle& handle, const py::object& which) {
  NCProject& project = handle.Get();
  const int number = FindDataSet(project, which);
  DataSetPtr dataSet;
  {
    py::gil_scoped_release release;
    dataSet = project.LoadDataSet(number);
  }
  if (!dataSet) {
    throw NCError(ExceptionMessage::translate("Dataset {1} cannot be read.") % number);
  }
  return {handle.project, dataSet};
}

void Save(const ProjectHandle& handle, const DataSetHandle& data) {
  NCProject& project = handle.Get();
  Own(handle, data);
  py::gil_scoped_release release;
  SaveOrThrow(project, data.dataSet);
}

// The matrix as a read-only view, whose base keeps the dataset (and its project) alive.
py::array Values(const DataSetHandle& data) {
  py::array_t<float> view = MatrixArray(
      data.dataSet->GetMatrix(),
      py::capsule(new DataSetHandle(data), [](void* p) { delete static_cast<DataSetHandle*>(p); }));
  view.attr("setflags")(py::arg("write") = false);
  return std::move(view);
}

// The values as a writable (rows, columns) array that owns them. A dataset of a scratch
// project that nothing but this handle holds gives its matrix away, without a copy, and the
// handle is left with an empty dataset of the same number; any other dataset's matrix is
// copied. Meant for throwaway results, such as a Dask partition's aligned data.
py::array TakeValues(DataSetHandle& data) {
  auto taken = std::make_unique<NCDataMatrix<float>>();
  if (dynamic_cast<ScratchProject*>(data.project.get()) && data.dataSet.use_count() == 1) {
    // Nobody else can see this dataset: its matrix may leave it, as long as the dataset
    // goes with it.
    *taken = std::move(const_cast<NCDataMatrix<float>&>(data.dataSet->GetMatrix()));
    data.dataSet = NCDataSet::Create(data.project, data.dataSet->GetNumber());
  } else {
    *taken = data.dataSet->GetMatrix();
  }
  const NCDataMatrix<float>& matrix = *taken;
  return MatrixArray(matrix, py::capsule(taken.release(), [](void* p) {
                       delete static_cast<NCDataMatrix<float>*>(p);
                     }));
}

// A copy of the matrix (Fortran order, like the dataset's) with NaN for missing values, made in
// one pass without the GIL.
py::array ValuesWithNaN(const DataSetHandle& data) {
  const NCDataMatrix<float>& matrix = data.dataSet->GetMatrix();
  const std::size_t rows = matrix.SizeRows();
  const std::size_t columns = matrix.SizeColumns();
  py::array_t<float, py::array::f_style> copy(
      {static_cast<py::ssize_t>(rows), static_cast<py::ssize_t>(columns)});
  float* out = copy.mutable_data();
  {
    py::gil_scoped_release release;
    for (std::size_t j = 0; j < columns; ++j) {
      const float* in = matrix.ColumnData(j);
      float* to = out + j * rows;
      for (std::size_t i = 0; i < rows; ++i) {
        to[i] = in[i] == NCDataMatrix<float>::kMissing ? NAN : in[i];
      }
    }
  }
  return std::move(copy);
}

// What Python shows of a variable: name, kind, block, unit and levels (qualitative only).
py::list Variables(const DataSetHandle& data) {
  const NCVariables& variables = data.project->GetVariables();
  py::list out;
  for (int c = 1; c <= data.dataSet->SizeVariables(); ++c) {
    VariableInfo* info = variables[data.dataSet->GetVarID(c)];
    py::dict entry;
    entry["id"] = data.dataSet->GetVarID(c);
    entry["name"] = info ? info->GetUserID(1) : std::string();
    std::string kind = "quantitative";
    py::list levels;
    if (info && info->AsQualitativeVariableInfo()) {
      kind = "qualitative";
      const QualitativeVariableInfo* q = info->AsQualitativeVariableInfo();
      for (int k = 1; k <= q->SizeSettings(); ++k) levels.append(q->GetSettingName(k));
    } else if (info && info->AsDateTimeVariableInfo()) {
      kind = "datetime";
    }
    entry["kind"] = kind;
    entry["block"] = info && info->IsY() ? "Y" : "X";
    entry["included"] = info ? info->IsIncluded() : false;
    entry["unit"] = info ? info->GetUnit() : std::string();
    entry["levels"] = levels;
    entry["generated"] = info ? !info->GetRecipe().empty() : false;
    out.append(entry);
  }
  return out;
}

// The IDs of the rows in observation ID series `series` (1: primary IDs).
py::list ObservationIDs(const DataSetHandle& data, int series) {
  const auto& rows = data.dataSet->GetObservationInfoVector();
  py::list ids(rows.size());
  const std::string none;
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const std::string& id = rows[i] ? rows[i]->GetUserID(series) : none;
    ids[i] = py::str(id.data(), id.size());
  }
  return ids;
}

// The batch (phase) of every row as codes into a list of names in order of first appearance:
// (int32 array, names), both empty for a dataset without batches (phases). Rows come in runs,
// so a row is looked up only when it differs from the one before.
py::tuple RowGroupCodes(const DataSetHandle& data, bool phases) {
  const NCObservations& observations = data.project->GetObservations();
  const int series = phases ? observations.GetPhaseIDRaw() : observations.GetBatchIDRaw();
  const auto& rows = data.dataSet->GetObservationInfoVector();
  const bool grouped = series > 0 && data.dataSet->GetBatchInfoVector();
  py::array_t<std::int32_t> codes(static_cast<py::ssize_t>(grouped ? rows.size() : 0));
  std::vector<std::string> names;
  if (grouped) {
    auto out = codes.mutable_unchecked<1>();
    std::unordered_map<std::string_view, std::int32_t> known;
    const std::string none;
    const std::string* previous = nullptr;
    std::int32_t code = 0;
    for (std::size_t i = 0; i < rows.size(); ++i) {
      const std::string& label = rows[i] ? rows[i]->GetUserID(series) : none;
      if (!previous || label != *previous) {
        const auto [at, added] = known.emplace(label, static_cast<std::int32_t>(names.size()));
        if (added) names.push_back(label);
        code = at->second;
        previous = &label;
      }
      out(static_cast<py::ssize_t>(i)) = code;
    }
  }
  return py::make_tuple(std::move(codes), std::move(names));
}

// The decoded texts of a qualitative or date-time column ("" for a missing value).
std::vector<std::string> DecodedColumn(const DataSetHandle& data, int column) {
  VariableInfo* info = data.project->GetVariables()[data.dataSet->GetVarID(column)];
  if (!info) throw NCError(ExceptionMessage::translate("Column {1} has no variable.") % column);
  const NCDataMatrix<float>& matrix = data.dataSet->GetMatrix();
  const float* values = matrix.ColumnData(static_cast<std::size_t>(column - 1));
  std::vector<std::string> texts(matrix.SizeRows());
  for (std::size_t i = 0; i < texts.size(); ++i) {
    if (values[i] != NCDataMatrix<float>::kMissing && std::isfinite(values[i])) {
      texts[i] = info->Decode(values[i]);
    }
  }
  return texts;
}

// The observation ID series named `label`: the project's batch (phase) series when it has one,
// else a new secondary series.
int SeriesFor(NCObservations& observations, bool phase) {
  const int known = phase ? observations.GetPhaseIDRaw() : observations.GetBatchIDRaw();
  return known > 0 ? known : observations.AddSecondaryID(phase ? "Phase" : "Batch");
}

// The name of every row of a group (batch or phase) given as codes into `names`; empty when
// there are no codes.
std::vector<const std::string*> CodedLabels(
    const py::array_t<std::int32_t, py::array::forcecast>& codes,
    const std::vector<std::string>& names) {
  std::vector<const std::string*> labels(static_cast<std::size_t>(codes.size()));
  const auto in = codes.unchecked<1>();
  for (py::ssize_t i = 0; i < codes.size(); ++i) {
    const std::int32_t code = in(i);
    if (code < 0 || static_cast<std::size_t>(code) >= names.size()) {
      throw NCError(ExceptionMessage::translate("Row {1} has no batch or phase.") % (i + 1));
    }
    labels[static_cast<std::size_t>(i)] = &names[static_cast<std::size_t>(code)];
  }
  return labels;
}

// One column of the values handed to `AddMatrix`: its float32 cells, `stride` bytes apart.
struct Column {
  py::array_t<float, py::array::forcecast> array;  // keeps the cells alive
  const char* cells;
  py::ssize_t stride;

  float operator[](std::size_t i) const {
    return *reinterpret_cast<const float*>(cells + static_cast<py::ssize_t>(i) * stride);
  }
};

// The columns of a (rows, columns) array, or of a sequence of equal-length 1-D columns (the
// columns of a pandas frame, say, which then need no copy into one array first); sets `rows`.
std::vector<Column> ColumnsOf(const py::object& values, std::size_t& rows) {
  const auto refuse = [] {
    return NCError(ExceptionMessage::translate("The values must be a matrix."));
  };
  std::vector<Column> columns;
  if (py::isinstance<py::list>(values) || py::isinstance<py::tuple>(values)) {
    rows = 0;
    for (const py::handle item : values) {
      auto array = py::array_t<float, py::array::forcecast>::ensure(item);
      if (!array || array.ndim() != 1) throw refuse();
      const auto size = static_cast<std::size_t>(array.shape(0));
      if (columns.empty()) rows = size;
      if (size != rows) throw refuse();
      const auto* cells = reinterpret_cast<const char*>(array.data());
      const py::ssize_t stride = array.strides(0);
      columns.push_back({std::move(array), cells, stride});
    }
    return columns;
  }
  auto array = py::array_t<float, py::array::forcecast>::ensure(values);
  if (!array || array.ndim() != 2) throw refuse();
  rows = static_cast<std::size_t>(array.shape(0));
  const auto* cells = reinterpret_cast<const char*>(array.data());
  for (py::ssize_t j = 0; j < array.shape(1); ++j)
    columns.push_back({array, cells + j * array.strides(1), array.strides(0)});
  return columns;
}

// A new dataset of quantitative variables `names` from a (rows, columns) float32 array, its rows
// named by `ids` (default 1, 2, ...): the array is copied once, column by column, into the
// dataset's own matrix. With batches (and phases), given as a code per row into a list of
// names and grouped by batch, it is a batch dataset. A name the project's variables have takes
// that variable, as a column of an import does (see `ImportVariables`). Saved into the project.
DataSetHandle AddMatrix(const ProjectHandle& handle, const py::object& values,
                        const std::vector<std::string>& names, std::vector<std::string> ids,
                        const std::string& name,
                        const py::array_t<std::int32_t, py::array::forcecast>& batchCodes,
                        const std::vector<std::string>& batchNames,
                        const py::array_t<std::int32_t, py::array::forcecast>& phaseCodes,
                        const std::vector<std::string>& phaseNames, bool renameClashes) {
  NCProject& project = handle.Get();
  std::size_t rows = 0;
  const std::vector<Column> columnValues = ColumnsOf(values, rows);
  if (batchCodes.ndim() != 1 || phaseCodes.ndim() != 1)
    throw NCError(ExceptionMessage::translate("The values must be a matrix."));
  const std::size_t columns = columnValues.size();
  const auto batches = static_cast<std::size_t>(batchCodes.size());
  const auto phases = static_cast<std::size_t>(phaseCodes.size());
  if (names.size() != columns || (!ids.empty() && ids.size() != rows) ||
      (batches != 0 && batches != rows) || (phases != 0 && phases != rows) ||
      (batches == 0 && phases != 0)) {
    throw NCError(ExceptionMessage::translate(
        "The names of the variables and observations must match the matrix's shape."));
  }
  const std::vector<const std::string*> batchLabels = CodedLabels(batchCodes, batchNames);
  const std::vector<const std::string*> phaseLabels = CodedLabels(phaseCodes, phaseNames);
  NCDataMatrix<float> matrix(rows, columns);
  for (std::size_t j = 0; j < columns; ++j) {
    const Column& in = columnValues[j];
    float* column = matrix.ColumnData(j);
    for (std::size_t i = 0; i < rows; ++i) {
      const float value = in[i];
      column[i] = std::isnan(value) ? NCDataMatrix<float>::kMissing : value;
    }
  }
  py::gil_scoped_release release;
  // The columns take the project's variables of their names, as an import's do.
  std::vector<tool::CsvColumn> described;
  described.reserve(columns);
  for (std::size_t j = 0; j < columns; ++j) {
    described.emplace_back(names[j], j + 1, std::string(), 0);
    described.back().Decide();
  }
  tool::ImportVariables variables(project, renameClashes);
  const NCIntegralVector<unsigned long, 0> varIDs = variables.Take(described, matrix);
  NCObservations& observations = project.GetObservations();
  const int batchSeries = batches == 0 ? 0 : SeriesFor(observations, false);
  const int phaseSeries = phases == 0 ? 0 : SeriesFor(observations, true);
  const std::size_t idCount = static_cast<std::size_t>(std::max({1, batchSeries, phaseSeries}));
  VarObsInfoVector<ObservationInfo> infos;
  infos.reserve(rows);
  observations.Reserve(rows);
  for (std::size_t i = 0; i < rows; ++i) {
    const unsigned long id = project.CreateUniqueID();
    std::vector<std::string> labels(idCount);
    labels[0] = ids.empty() ? std::to_string(i + 1) : std::move(ids[i]);
    if (batchSeries > 0) labels[static_cast<std::size_t>(batchSeries - 1)] = *batchLabels[i];
    if (phaseSeries > 0) labels[static_cast<std::size_t>(phaseSeries - 1)] = *phaseLabels[i];
    infos.push_back(observations.Add(std::make_unique<ObservationInfo>(std::move(labels), id)));
  }
  const int number = project.GetFreeNumber();
  DataSetPtr dataSet =
      NCDataSet::Create(handle.project, name.c_str(), number, std::move(matrix), std::move(infos),
                        &varIDs, {1}, {1}, nullptr, nullptr, nullptr);
  if (batchSeries > 0) BatchUtilities::MakeBatchDataSet(*dataSet, batchSeries, phaseSeries);
  SaveOrThrow(project, dataSet);
  variables.Done();
  return {handle.project, dataSet};
}

}  // namespace
}  // namespace ncds::python

PYBIND11_MODULE(_ncds, m) {
  using namespace ncds::python;
  m.doc() = "The ncds library: projects and datasets of multivariate (batch) process data.";
  static py::exception<Exception> error(m, "Error");
  py::register_exception_translator([](std::exception_ptr p) {
    try {
      if (p) std::rethrow_exception(p);
    } catch (const Exception& e) {
      error(e.what());
    }
  });

  m.def("check", &NCProjectFile::Check, py::arg("path"),
        "Reads everything in the project file at `path`; one sentence per damaged part, saying "
        "what it costs (none when nothing is damaged).");

  py::class_<ProjectHandle> project(m, "Project");
  project
      .def(py::init([] {
             return ProjectHandle{NCProject::Create(), std::string()};
           }),
           "A new project kept in memory.")
      .def_static(
          "open",
          [](const std::string& path, bool create) {
            return ProjectHandle{NCProjectFile::Open(path, create), path};
          },
          py::arg("path"), py::arg("create") = false,
          "Opens the project file at `path` (created when `create` and it does not exist).")
      .def_static(
          "scratch",
          [] {
            return ProjectHandle{ScratchProject::Create(), std::string()};
          },
          "A project in memory that keeps none of the datasets saved into it: for throwaway "
          "pieces of work, whose datasets live as long as Python holds them.")
      .def_property_readonly("path", [](const ProjectHandle& h) { return h.path; })
      .def_property_readonly("closed", [](const ProjectHandle& h) { return !h.project; })
      .def(
          "close", [](ProjectHandle& h) { h.project.reset(); },
          "Lets go of the project (and its file); loaded datasets stay usable.")
      .def("datasets", &ListDataSets,
           "The stored datasets as (number, name, observations, variables, kind).")
      .def("add_matrix", &AddMatrix, py::arg("values"), py::arg("names"),
           py::arg("ids") = std::vector<std::string>(), py::arg("name") = "matrix",
           py::arg("batch_codes") = py::array_t<std::int32_t>(0),
           py::arg("batch_names") = std::vector<std::string>(),
           py::arg("phase_codes") = py::array_t<std::int32_t>(0),
           py::arg("phase_names") = std::vector<std::string>(), py::arg("rename_clashes") = false,
           "A new dataset of quantitative variables from a 2-D array, or a list of its "
           "columns (NaN: missing); a name the project has takes its variable.")
      .def("load", &Load, py::arg("dataset"), "Loads a dataset by number or name.")
      .def("save", &Save, py::arg("dataset"), "Saves a dataset into the project.")
      .def(
          "delete",
          [](const ProjectHandle& h, const py::object& which) {
            NCProject& project = h.Get();
            const int number = FindDataSet(project, which);
            py::gil_scoped_release release;
            return project.RemoveDataSet(number);
          },
          py::arg("dataset"), "Deletes a dataset by number or name.");

  py::class_<DataSetHandle> dataSet(m, "Dataset");
  dataSet
      .def_property_readonly(
          "name", [](const DataSetHandle& d) { return std::string(d.dataSet->GetName()); })
      .def_property_readonly("number",
                             [](const DataSetHandle& d) { return d.dataSet->GetNumber(); })
      .def_property_readonly("shape",
                             [](const DataSetHandle& d) {
                               return py::make_tuple(d.dataSet->SizeObservations(),
                                                     d.dataSet->SizeVariables());
                             })
      .def_property_readonly(
          "is_batch",
          [](const DataSetHandle& d) { return d.dataSet->GetBatchInfoVector() != nullptr; })
      .def_property_readonly("values", &Values,
                             "The values as a read-only numpy view (observations x variables), "
                             "-99 where missing; no copy.")
      .def("take_values", &TakeValues,
           "The values as a writable array of their own: a throwaway dataset of a scratch "
           "project gives its matrix away (and is empty afterwards); any other is copied.")
      .def("values_with_nan", &ValuesWithNaN,
           "A copy of the values (Fortran order) with NaN where a value is missing.")
      .def("variables", &Variables, "One dict per column: id, name, kind, block, unit, levels.")
      .def("observation_ids", &ObservationIDs, py::arg("series") = 1,
           "The rows' IDs in an ID series (1: the primary IDs).")
      .def(
          "batch_codes", [](const DataSetHandle& d) { return RowGroupCodes(d, false); },
          "The batch of every row as (int32 codes, names in order of first appearance).")
      .def(
          "phase_codes", [](const DataSetHandle& d) { return RowGroupCodes(d, true); },
          "The phase of every row as (int32 codes, names in order of first appearance).")
      .def_property_readonly(
          "aligned_on",
          [](const DataSetHandle& d) -> py::object {
            const DataSetAlignment* alignment = d.dataSet->GetAlignment();
            if (!alignment) return py::none();
            VariableInfo* maturity = d.project->GetVariables()[alignment->GetMaturityID()];
            return py::str(maturity ? maturity->GetUserID(1) : std::string());
          },
          "The name of the variable an aligned dataset was aligned on; None when not aligned.")
      .def("decoded_column", &DecodedColumn, py::arg("column"),
           "The texts of a qualitative or date-time column (from 1), '' where missing.");
  BindOperations(m, project, dataSet);
}
