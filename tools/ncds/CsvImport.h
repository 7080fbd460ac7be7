#ifndef NCDS_TOOLS_NCDS_CSVIMPORT_H
#define NCDS_TOOLS_NCDS_CSVIMPORT_H

// Adds the content of a CSV file to a project as a new dataset.
//
// The first row names the columns. The columns named as ID columns give the observations'
// ID series: the first one the primary IDs, made unique in the project the way the
// observation container makes them (wanted, wanted_1, wanted_2, ... ignoring case; an empty
// primary ID becomes the row number first), the others secondary IDs in the project's
// observation series of the same label, which is added when the project has none. Without
// ID columns the primary IDs are the row numbers. Every ID column also keeps its values in a
// series labelled by its header, so that an export can name it again. Every other column becomes a
// new variable of the project named by its header (made unique among the project's variables the
// same way; an empty header gives the default variable name), of the kind its cells decide (see
// `CsvColumn`): quantitative, qualitative or date-time. Cells are trimmed of blanks; empty
// cells and the missing texts are missing values.
//
// All or nothing: the whole file is read and checked before the project is touched, and if
// adding to the project fails (the project's change check refuses, or it does not store the
// dataset) every record and series added is removed again, leaving the project's records,
// series and datasets as they were. Errors throw `NCError` with a translated message naming
// the file and, where they apply, the line and column.
//
// Cost: one pass over the text (two when a column turns out to hold text or date-times only
// after cells of another kind), with no allocation per cell; a file is mapped, not copied.

#include <boost/shared_ptr.hpp>
#include <string>
#include <string_view>

#include "tools/ncds/CsvOptions.h"

class NCDataSet;
class NCProjectBase;

namespace ncds::tool::CsvImport {

// Imports the file at `path`; its path names it in messages.
boost::shared_ptr<NCDataSet> ImportFile(const boost::shared_ptr<NCProjectBase>& project,
                                        const std::string& path, const CsvImportOptions& options);

// Imports `text`, named `sourceName` in messages and, without a name in `options`, in the
// dataset's name (without folder and extension).
boost::shared_ptr<NCDataSet> ImportText(const boost::shared_ptr<NCProjectBase>& project,
                                        std::string_view text, const std::string& sourceName,
                                        const CsvImportOptions& options);

// The primary ID that a batch import without an ID column gives the row at 1-based
// `position` of `batch` when the longest batch has `longest` rows: the batch name, '_' and
// the position zero-padded to at least three digits (B07_012).
std::string BatchRowID(const std::string& batch, std::size_t position, std::size_t longest);

}  // namespace ncds::tool::CsvImport

#endif  // NCDS_TOOLS_NCDS_CSVIMPORT_H
