// The tool's operations as methods of projects and datasets. Each runs without the GIL, reports
// progress to an optional Python callable (called with the operation's caption and its
// fraction done, 0..1; a false answer or an exception cancels where the operation can be
// cancelled), and saves what it changed or made into the project, as the tool does.

#include <pybind11/functional.h>
#include <pybind11/stl.h>

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Handles.h"

#include "ncds/batch/DataSetAlignment.h"
#include "ncds/dataset/DataSetPredictionData.h"
#include "ncds/derived/LocalCenteringInfo.h"
#include "ncds/foundations/NCProgress.h"
#include "tools/ncds/BatchCommands.h"
#include "tools/ncds/CombineCommands.h"
#include "tools/ncds/CsvExport.h"
#include "tools/ncds/CsvImport.h"
#include "tools/ncds/CsvOptions.h"
#include "tools/ncds/DerivedCommands.h"
#include "tools/ncds/UpdateCommands.h"

namespace py = pybind11;

namespace ncds::python {
namespace {

// Forwards the library's progress to a Python callable for as long as it is installed. The
// callable runs with the GIL; whatever it raises is kept and raised again after the operation.
class PythonProgress final : public NCProgressSink {
 public:
  explicit PythonProgress(py::object callback)
      : mCallback(std::move(callback)), mPrevious(NCProgress::SetSink(this)) {}
  ~PythonProgress() override { NCProgress::SetSink(mPrevious); }
  PythonProgress(const PythonProgress&) = delete;
  PythonProgress& operator=(const PythonProgress&) = delete;

  void Begin(const std::string& caption, float minimum, float maximum, const NCProgressFlags&,
             const std::string&) override {
    mStack.push_back({caption, minimum, maximum});
    Report(0.0);
  }
  bool Update(float value) override {
    if (mStack.empty()) return true;
    const Frame& frame = mStack.back();
    const float span = frame.maximum - frame.minimum;
    return Report(span > 0 ? (value - frame.minimum) / span : 0.0);
  }
  bool Spin() override { return Report(-1.0); }
  void End() override {
    if (mStack.empty()) return;
    Report(1.0);
    mStack.pop_back();
  }

  // Raises what the callable raised, if anything.
  void Rethrow() {
    if (mError) {
      py::gil_scoped_acquire gil;
      std::optional<py::error_already_set> error = std::move(mError);
      mError.reset();
      throw *error;
    }
  }

 private:
  struct Frame {
    std::string caption;
    float minimum;
    float maximum;
  };

  bool Report(double fraction) {
    if (mError || mCallback.is_none() || mStack.empty()) return !mError;
    py::gil_scoped_acquire gil;
    try {
      const py::object answer = mCallback(mStack.back().caption, fraction);
      return answer.is_none() || answer.cast<bool>();
    } catch (py::error_already_set& error) {
      mError = std::move(error);
      return false;
    }
  }

  py::object mCallback;
  NCProgressSink* mPrevious;
  std::vector<Frame> mStack;
  std::optional<py::error_already_set> mError;
};

// Runs `work` without the GIL, reporting to `progress`.
template <class Work>
auto Run(const py::object& progress, Work work) {
  PythonProgress sink(progress);
  struct Result {
    decltype(work()) value;
  };
  std::optional<Result> result;
  try {
    py::gil_scoped_release release;
    result.emplace(Result{work()});
  } catch (...) {
    sink.Rethrow();  // the callable's error explains a cancel better than the library's
    throw;
  }
  sink.Rethrow();
  return std::move(result->value);
}

using Column = py::array_t<float, py::array::c_style | py::array::forcecast>;
using Codes = py::array_t<std::int32_t, py::array::c_style | py::array::forcecast>;

// Rows in arrays for the aligner: `columns` (of the same length) must outlive them.
DataSetAlignment::Rows RowsOf(const std::vector<Column>& columns, std::size_t maturity,
                              std::vector<std::size_t> batchStarts,
                              std::vector<std::string> batches, const Codes& phases,
                              std::vector<std::string> phaseNames) {
  DataSetAlignment::Rows rows;
  rows.name = "partition";
  rows.count = columns.empty() ? 0 : static_cast<std::size_t>(columns.front().size());
  for (const Column& column : columns) {
    if (column.ndim() != 1 || static_cast<std::size_t>(column.size()) != rows.count) {
      throw NCError(ExceptionMessage::translate("The columns must be of the same length."));
    }
    rows.columns.push_back(column.data());
  }
  rows.maturity = maturity;
  rows.batchStarts = std::move(batchStarts);
  rows.batches = std::move(batches);
  if (phases.size() > 0) {
    if (static_cast<std::size_t>(phases.size()) != rows.count) {
      throw NCError(ExceptionMessage::translate("Every row needs a phase."));
    }
    rows.phases = phases.data();
  }
  rows.phaseNames = std::move(phaseNames);
  return rows;
}

// Binds `f(rows, choice)` as the static method `name`, taking rows held in arrays (see RowsOf).
template <class F>
void DefOnRows(py::class_<ProjectHandle>& project, const char* name, F f, const char* doc) {
  project.def_static(
      name,
      [f](const std::vector<Column>& values, std::size_t maturity,
          std::vector<std::size_t> batchStarts, std::vector<std::string> batches,
          const Codes& phases, std::vector<std::string> phaseNames,
          const tool::BatchCommands::AlignChoice& choice) {
        return f(RowsOf(values, maturity, std::move(batchStarts), std::move(batches), phases,
                        std::move(phaseNames)),
                 choice);
      },
      py::arg("values"), py::arg("maturity"), py::arg("batch_starts"), py::arg("batches"),
      py::arg("phases"), py::arg("phase_names"), py::arg("choice"), doc);
}

// Aligns `rows` and answers the aligned values and every aligned row's phase (both over the
// result, no copy) and name (an object array, each name built in one reused buffer).
py::tuple AlignedArrays(const DataSetAlignment::Rows& rows,
                        const tool::BatchCommands::AlignChoice& choice) {
  auto aligned = std::make_unique<DataSetAlignment::RowsResult>();
  {
    py::gil_scoped_release release;
    *aligned = tool::BatchCommands::AlignRows(rows, choice);
  }
  const std::size_t count = rows.batches.size() * static_cast<std::size_t>(aligned->points);
  py::array names(py::dtype("object"), py::array::ShapeContainer{static_cast<py::ssize_t>(count)});
  std::vector<std::string> suffixes;
  for (int j = 1; j <= aligned->points; ++j) {
    suffixes.push_back(DataSetAlignment::RowSuffix(j, aligned->points));
  }
  auto** slot = static_cast<PyObject**>(names.mutable_data());
  std::string name;
  for (const std::string& batch : rows.batches) {
    for (const std::string& suffix : suffixes) {
      name.assign(batch).append(suffix);
      PyObject* text =
          PyUnicode_FromStringAndSize(name.data(), static_cast<py::ssize_t>(name.size()));
      if (text == nullptr) throw py::error_already_set();
      Py_XDECREF(*slot);
      *slot++ = text;
    }
  }
  const DataSetAlignment::RowsResult& result = *aligned;
  const py::capsule owner(aligned.release(),
                          [](void* p) { delete static_cast<DataSetAlignment::RowsResult*>(p); });
  py::array array = MatrixArray(result.values, owner);
  py::array phaseCodes = py::array_t<std::int32_t>(static_cast<py::ssize_t>(result.phases.size()),
                                                   result.phases.data(), owner);
  return py::make_tuple(array, phaseCodes, names);
}

// Edits `data` with `edit` (returning a log), saves it and answers the log.
template <class Edit>
std::string EditAndSave(const ProjectHandle& handle, const DataSetHandle& data,
                        const py::object& progress, Edit edit) {
  NCProject& project = handle.Get();
  NCDataSet& dataSet = Own(handle, data);
  return Run(progress, [&] {
    std::string log = edit(dataSet);
    SaveOrThrow(project, data.dataSet);
    return log;
  });
}

// Saves the new dataset `made` and answers it with `log`.
py::tuple Added(const ProjectHandle& handle, const DataSetPtr& made, const std::string& log) {
  return py::make_tuple(log, DataSetHandle{handle.project, made});
}

// Runs `make`, which makes a dataset of the given number and answers the log of what it did,
// saves what it made (and whatever `make` changed of `changed`), and answers (log, dataset).
template <class Make>
py::tuple MakeAndSave(const ProjectHandle& h, const py::object& progress, Make make,
                      const DataSetPtr& changed = nullptr) {
  NCProject& p = h.Get();
  DataSetPtr made;
  const std::string log = Run(progress, [&] {
    std::string line = make(p.GetFreeNumber(), made);
    if (changed && changed->IsDirty()) SaveOrThrow(p, changed);
    SaveOrThrow(p, made);
    return line;
  });
  return Added(h, made, log);
}

tool::CsvImportOptions ImportOptions(const std::string& name, const std::vector<std::string>& ids,
                                     const std::string& batch, const std::string& phase,
                                     bool renameClashes) {
  tool::CsvImportOptions options;
  options.renameClashes = renameClashes;
  options.name = name;
  options.idColumns = ids;
  options.batchColumn = batch;
  options.phaseColumn = phase;
  return options;
}

}  // namespace

void BindOperations(py::module_&, py::class_<ProjectHandle>& project,
                    py::class_<DataSetHandle>& dataSet) {
  using tool::BatchCommands::AlignChoice;
  using tool::BatchCommands::PhaseChoice;
  using tool::CombineCommands::SummaryChoice;
  project
      .def(
          "import_csv",
          [](const ProjectHandle& h, const std::string& path, const std::string& name,
             const std::vector<std::string>& ids, const std::string& batch,
             const std::string& phase, char separator, char decimal,
             const std::vector<std::string>& missing, bool renameClashes,
             const py::object& progress) {
            tool::CsvImportOptions options = ImportOptions(name, ids, batch, phase, renameClashes);
            options.separator = separator;
            options.decimal = decimal;
            options.missingTexts = missing;
            return MakeAndSave(h, progress, [&](int number, DataSetPtr& made) {
              options.number = number;
              made = tool::CsvImport::ImportFile(h.project, path, options);
              return std::string();
            });
          },
          py::arg("path"), py::arg("name") = "", py::arg("ids") = std::vector<std::string>(),
          py::arg("batch") = "", py::arg("phase") = "", py::arg("separator") = ',',
          py::arg("decimal") = '.', py::arg("missing") = std::vector<std::string>(),
          py::arg("rename_clashes") = false, py::arg("progress") = py::none())
      .def(
          "import_text",
          [](const ProjectHandle& h, const std::string& text, const std::string& name,
             const std::vector<std::string>& ids, const std::string& batch,
             const std::string& phase, bool renameClashes) {
            tool::CsvImportOptions options = ImportOptions(name, ids, batch, phase, renameClashes);
            return MakeAndSave(h, py::none(), [&](int number, DataSetPtr& made) {
              options.number = number;
              made = tool::CsvImport::ImportText(h.project, text, name, options);
              return std::string();
            });
          },
          py::arg("text"), py::arg("name"), py::arg("ids") = std::vector<std::string>(),
          py::arg("batch") = "", py::arg("phase") = "", py::arg("rename_clashes") = false)
      .def(
          "delete_batches",
          [](const ProjectHandle& h, const DataSetHandle& d,
             const std::vector<std::string>& batches,
             const std::vector<std::pair<std::string, std::string>>& phases,
             const py::object& progress) {
            std::vector<PhaseChoice> choices;
            for (const auto& [phase, batch] : phases) choices.push_back({phase, batch});
            return EditAndSave(h, d, progress, [&](NCDataSet& dataSet) {
              return tool::BatchCommands::DeleteBatches(dataSet, batches, choices);
            });
          },
          py::arg("dataset"), py::arg("batches"), py::arg("phases"),
          py::arg("progress") = py::none())
      .def(
          "rename_phase",
          [](const ProjectHandle& h, const DataSetHandle& d, const std::string& from,
             const std::string& to) {
            return EditAndSave(h, d, py::none(), [&](NCDataSet& dataSet) {
              return tool::BatchCommands::RenamePhase(dataSet, from, to);
            });
          },
          py::arg("dataset"), py::arg("old"), py::arg("new"))
      .def(
          "align",
          [](const ProjectHandle& h, const DataSetHandle& d, const AlignChoice& choice,
             const std::string& name, const py::object& progress) {
            NCDataSet& source = Own(h, d);
            // "$Time" is made for the source first when asked for: the source is saved too.
            return MakeAndSave(
                h, progress,
                [&](int number, DataSetPtr& made) {
                  return tool::BatchCommands::Align(source, choice, name, number, made);
                },
                d.dataSet);
          },
          py::arg("dataset"), py::arg("choice"), py::arg("name"), py::arg("progress") = py::none())
      .def(
          "align_extent",
          [](const ProjectHandle& h, const DataSetHandle& d, const AlignChoice& choice) {
            NCDataSet& source = Own(h, d);
            py::gil_scoped_release release;
            return tool::BatchCommands::MakeAlignment(source, choice).Measure(source);
          },
          py::arg("dataset"), py::arg("choice"),
          "What the grids of `align` would span on this dataset, to be combined with other "
          "pieces' and given back as `choice.extent`.")
      .def(
          "summarize",
          [](const ProjectHandle& h, const DataSetHandle& d, const SummaryChoice& choice,
             const std::string& name, const py::object& progress) {
            const NCDataSet& source = Own(h, d);
            return MakeAndSave(h, progress, [&](int number, DataSetPtr& made) {
              return tool::CombineCommands::Summarize(source, choice, name, number, made);
            });
          },
          py::arg("dataset"), py::arg("choice"), py::arg("name"), py::arg("progress") = py::none())
      .def(
          "merge",
          [](const ProjectHandle& h, const DataSetHandle& into, const DataSetHandle& from,
             bool keep) {
            const NCDataSet& other = Own(h, from);
            return EditAndSave(h, into, py::none(), [&](NCDataSet& dataSet) {
              if (&dataSet == &other) {
                throw NCError(
                    ExceptionMessage::translate("A dataset cannot be merged into itself."));
              }
              return tool::CombineCommands::Merge(dataSet, other, keep);
            });
          },
          py::arg("into"), py::arg("source"), py::arg("keep") = false)
      .def(
          "derive",
          [](const ProjectHandle& h, const DataSetHandle& d, const std::string& name,
             const std::string& formula) {
            return EditAndSave(h, d, py::none(), [&](NCDataSet& dataSet) {
              return formula.empty() ? tool::DerivedCommands::Update(dataSet)
                                     : tool::DerivedCommands::Derive(dataSet, name, formula);
            });
          },
          py::arg("dataset"), py::arg("name") = "", py::arg("formula") = "")
      .def(
          "center",
          [](const ProjectHandle& h, const DataSetHandle& d, const std::string& path,
             char separator) {
            const LocalCenteringInfo centers = tool::DerivedCommands::ReadCenters(path, separator);
            return EditAndSave(h, d, py::none(), [&](NCDataSet& dataSet) {
              return tool::DerivedCommands::Center(dataSet, centers);
            });
          },
          py::arg("dataset"), py::arg("path"), py::arg("separator") = ',');

  dataSet
      .def(
          "export_csv",
          [](const DataSetHandle& d, const std::string& path, bool centered, char separator,
             char decimal) {
            tool::CsvExportOptions options;
            options.centered = centered;
            options.separator = separator;
            options.decimal = decimal;
            py::gil_scoped_release release;
            tool::CsvExport::WriteFile(*d.dataSet, path, options);
          },
          py::arg("path"), py::arg("centered") = false, py::arg("separator") = ',',
          py::arg("decimal") = '.')
      .def("fingerprint",
           [](const DataSetHandle& d) {
             py::gil_scoped_release release;
             return DataSetPredictionData::Fingerprint(*d.dataSet);
           })
      .def(
          "update",
          [](const DataSetHandle& d, const py::object& progress) {
            return Run(progress, [&] {
              const DataSetPtr source = tool::UpdateCommands::LoadSource(*d.project, *d.dataSet);
              bool changed = false;
              std::string log = tool::UpdateCommands::Update(*d.dataSet, source.get(), changed);
              if (changed) SaveOrThrow(*d.project, d.dataSet);
              return log;
            });
          },
          py::arg("progress"),
          "Brings an aligned or batch-level dataset up to date with its source and saves it; "
          "the log.")
      .def(
          "append",
          [](const DataSetHandle& d, const std::string& source, bool isText,
             const std::vector<std::string>& ids, const std::string& batch,
             const std::string& phase, char separator, char decimal,
             const std::vector<std::string>& missing, bool replace, bool renameClashes,
             const py::object& progress) {
            tool::CsvImportOptions options = ImportOptions("", ids, batch, phase, renameClashes);
            options.separator = separator;
            options.decimal = decimal;
            options.missingTexts = missing;
            const ProjectHandle handle{d.project, std::string()};
            return EditAndSave(handle, d, progress, [&](NCDataSet& dataSet) {
              tool::CsvImport::Notes notes;
              if (isText) {
                tool::CsvImport::AppendText(dataSet, source, dataSet.GetName(), options, replace,
                                            &notes);
              } else {
                tool::CsvImport::AppendFile(dataSet, source, options, replace, &notes);
              }
              std::string log;
              for (const std::string& note : notes) log += note + '\n';
              return log;
            });
          },
          py::arg("source"), py::arg("is_text"), py::arg("ids"), py::arg("batch"), py::arg("phase"),
          py::arg("separator"), py::arg("decimal"), py::arg("missing"), py::arg("replace"),
          py::arg("rename_clashes"), py::arg("progress"),
          "Appends the batches of a CSV file (or text) to this batch dataset and saves it; the "
          "log.");

  DefOnRows(project, "align_rows", AlignedArrays,
            "Aligns rows held in arrays as `align` aligns a dataset of them, without making one: "
            "`values` (a list of columns), the maturity's column, the first row of every batch "
            "and its name, every row's phase (an index into `phase_names`; empty: no phases). "
            "Answers the aligned values, every aligned row's phase and every aligned row's name "
            "(an object array).");
  DefOnRows(
      project, "align_rows_extent",
      [](const DataSetAlignment::Rows& rows, const AlignChoice& choice) {
        py::gil_scoped_release release;
        return tool::BatchCommands::MakeAlignment(0, choice).Measure(rows);
      },
      "What the grids of `align_rows` would span on these rows.");

  py::class_<AlignChoice>(project, "AlignChoice")
      .def(py::init<>())
      .def_readwrite("maturity", &AlignChoice::maturity)
      .def_readwrite("points", &AlignChoice::points)
      .def_readwrite("phase_points", &AlignChoice::phasePoints)
      .def_readwrite("relative", &AlignChoice::relative)
      .def_readwrite("smooth", &AlignChoice::smooth)
      .def_readwrite("extend", &AlignChoice::extend)
      .def_readwrite("extent", &AlignChoice::extent);
  using Extent = DataSetAlignment::Extent;
  py::class_<Extent>(project, "AlignExtent")
      .def(py::init<>())
      .def_readwrite("ranges", &Extent::ranges)
      .def_readwrite("front", &Extent::front)
      .def_readwrite("back", &Extent::back)
      .def(
          "add", [](Extent& e, const Extent& other) { e.Add(other); }, py::arg("other"),
          "Widens this extent by another piece's.")
      .def(py::pickle([](const Extent& e) { return py::make_tuple(e.ranges, e.front, e.back); },
                      [](const py::tuple& t) {
                        Extent e;
                        e.ranges = t[0].cast<decltype(Extent::ranges)>();
                        e.front = t[1].cast<double>();
                        e.back = t[2].cast<double>();
                        return e;
                      }));
  py::class_<SummaryChoice>(project, "SummaryChoice")
      .def(py::init<>())
      .def_readwrite("statistics", &SummaryChoice::statistics)
      .def_readwrite("variables", &SummaryChoice::variables)
      .def_readwrite("maturity", &SummaryChoice::maturity)
      .def_readwrite("by_phase", &SummaryChoice::byPhase)
      .def_readwrite("conditions", &SummaryChoice::conditions);
}

}  // namespace ncds::python
