#ifndef NCDS_PYTHON_SRC_HANDLES_H
#define NCDS_PYTHON_SRC_HANDLES_H

// What the extension hands to Python: a project, and a loaded dataset with its project.

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

#include <boost/shared_ptr.hpp>
#include <string>

#include "ncds/dataset/NCDataSet.h"
#include "ncds/foundations/Exception.h"
#include "ncds/foundations/ExceptionMessage.h"
#include "ncds/project/NCProject.h"
#include "ncds/project/NCProjectFile.h"

namespace ncds::python {

using DataSetPtr = boost::shared_ptr<NCDataSet>;
using ProjectPtr = boost::shared_ptr<NCProject>;

// A loaded dataset together with the project that owns its records: Python may drop the
// project object first, and the dataset's rows still name records in it.
struct DataSetHandle {
  ProjectPtr project;
  DataSetPtr dataSet;
};

// A project as Python holds it: in memory, or a project file, which `Close` lets go.
struct ProjectHandle {
  ProjectPtr project;
  std::string path;  // empty for a project in memory

  NCProject& Get() const {
    if (!project) throw NCError(ExceptionMessage::translate("The project is closed."));
    return *project;
  }
  NCProjectFile* File() const { return dynamic_cast<NCProjectFile*>(&Get()); }
};

// Saves `dataSet` into `project`; throws `NCError` when it could not be saved.
void SaveOrThrow(NCProject& project, const DataSetPtr& dataSet);

// The loaded dataset of `data`, which must belong to `handle`'s project (else `NCError`).
NCDataSet& Own(const ProjectHandle& handle, const DataSetHandle& data);

// The number of the dataset `which` names: a number, or a name.
int FindDataSet(const NCProject& project, const pybind11::object& which);

// A (rows, columns) array over `matrix`'s cells (columns contiguous, CapacityRows() floats
// apart), kept alive by `owner`.
pybind11::array_t<float> MatrixArray(const NCDataMatrix<float>& matrix,
                                     const pybind11::capsule& owner);

// Adds the tool's operations (import, export, batch edits, align, summarize, merge, derive,
// center, fingerprint) to the two classes.
void BindOperations(pybind11::module_& m, pybind11::class_<ProjectHandle>& project,
                    pybind11::class_<DataSetHandle>& dataSet);

}  // namespace ncds::python

#endif  // NCDS_PYTHON_SRC_HANDLES_H
