#ifndef NCDS_PYTHON_SRC_SCRATCHPROJECT_H
#define NCDS_PYTHON_SRC_SCRATCHPROJECT_H

#include <boost/shared_ptr.hpp>
#include <set>

#include "ncds/dataset/NCDataSet.h"
#include "ncds/project/NCProject.h"

namespace ncds::python {

// A project for throwaway datasets, such as the pieces of a Dask partition: saving a dataset
// keeps neither a stream nor a description of it, only its number, so that the next dataset
// gets another. Its datasets live as long as Python holds them; none can be listed or loaded.
class ScratchProject : public NCProject {
 public:
  static boost::shared_ptr<NCProject> Create() {
    return boost::shared_ptr<NCProject>(new ScratchProject());
  }
  bool SaveDataSet(boost::shared_ptr<NCDataSet const> dataSet) override {
    if (!dataSet) return false;
    mNumbers.insert(dataSet->GetNumber());
    return true;
  }

 protected:
  bool IsDataSetNumber(int number) const override { return mNumbers.count(number) > 0; }

 private:
  ScratchProject() = default;
  std::set<int> mNumbers;
};

}  // namespace ncds::python

#endif  // NCDS_PYTHON_SRC_SCRATCHPROJECT_H
