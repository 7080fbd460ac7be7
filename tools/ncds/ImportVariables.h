#ifndef NCDS_TOOLS_NCDS_IMPORTVARIABLES_H
#define NCDS_TOOLS_NCDS_IMPORTVARIABLES_H

// The project variables that the columns of an import go into. A project's variables are
// shared by its datasets, so that two files of the same process give the same columns:
// - a column takes the variable whose primary ID equals its header (ignoring case) when the
//   kinds agree (quantitative, qualitative, date-time), and a new variable of that name when
//   the project has none;
// - a qualitative column's levels are merged into the variable's: levels it lacks are appended
//   and the column's codes mapped onto the variable's;
// - a date-time column's values are counted anew from the variable's offset in its unit;
// - a header that a variable of another kind carries is refused in one sentence, or, with
//   `renameClashes`, gets a new variable of the first free name (`Temp_1`, `Temp_2`, ...), as
//   a header repeated within the file does (a dataset holds a variable once).
//
// All or nothing: the records added and the levels appended are taken back when the object
// goes before `Done`. One thread; the project's variables must not change meanwhile.

#include <string>
#include <vector>

#include "ncds/foundations/NCDataMatrix.h"
#include "ncds/foundations/NCIntegralVector.h"
#include "tools/ncds/CsvColumn.h"

class NCProjectBase;
class VariableInfo;

namespace ncds::tool {

class ImportVariables {
 public:
  ImportVariables(NCProjectBase& project, bool renameClashes);
  ~ImportVariables();
  ImportVariables(const ImportVariables&) = delete;
  ImportVariables& operator=(const ImportVariables&) = delete;

  // The variable of every column, in column order; column k of `values` (one row per cell) is
  // recoded where the variable asks for it. Every column is checked before anything changes:
  // a kind clash throws `NCError` and leaves the project as it was.
  NCIntegralVector<unsigned long, 0> Take(std::vector<CsvColumn>& columns,
                                          NCDataMatrix<float>& values);
  // The variables `Take` added.
  const NCIntegralVector<unsigned long, 0>& GetAdded() const { return mAdded; }
  // Keeps what `Take` changed.
  void Done() { mDone = true; }

  // The kind of a variable and of a column as the user reads it: "quantitative",
  // "qualitative" or "date-time", translated.
  static std::string KindName(const VariableInfo& variable);
  static std::string KindName(CsvColumn::Kind kind);

 private:
  NCProjectBase& mProject;
  bool mRenameClashes;
  NCIntegralVector<unsigned long, 0> mAdded;
  // Qualitative variables whose levels grew, with their former number of levels.
  std::vector<std::pair<unsigned long, int>> mGrown;
  bool mVariablesDirty;
  bool mDone = false;
};

}  // namespace ncds::tool

#endif  // NCDS_TOOLS_NCDS_IMPORTVARIABLES_H
