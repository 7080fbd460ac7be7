#ifndef NCDS_TOOLS_NCDS_CSVIMPORT_H
#define NCDS_TOOLS_NCDS_CSVIMPORT_H

// Adds the content of a CSV file to a project as a new dataset.
//
// The first row names the columns. The columns named as ID columns give the observations'
// ID series: the first one the primary IDs, made unique within the dataset (wanted, wanted_1,
// wanted_2, ... ignoring case; an empty primary ID becomes the row number first; other
// datasets may hold the same names), the others secondary IDs in the project's observation
// series of the same label, which is added when the project has none. Without ID columns the
// primary IDs are the row numbers (in a batch file, batch and position: B07_012). Every ID
// column also keeps its values in a series labelled by its header, so that an export can name
// it again; only the batch and phase columns fill the project's batch and phase series
// whatever their headers, once the project has them. Every other column goes into the project
// variable of its name, or a new one, as `ImportVariables` decides, of the kind its cells decide
// (see `CsvColumn`): quantitative, qualitative or date-time. Cells are trimmed of blanks; empty
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
#include <vector>

#include "tools/ncds/CsvOptions.h"

class NCDataSet;
class NCProjectBase;

namespace ncds::tool::CsvImport {

// What an import tells its user besides the dataset, one sentence each.
using Notes = std::vector<std::string>;

// Imports the file at `path`; its path names it in messages.
boost::shared_ptr<NCDataSet> ImportFile(const boost::shared_ptr<NCProjectBase>& project,
                                        const std::string& path, const CsvImportOptions& options,
                                        Notes* notes = nullptr);

// Imports `text`, named `sourceName` in messages and, without a name in `options`, in the
// dataset's name (without folder and extension).
boost::shared_ptr<NCDataSet> ImportText(const boost::shared_ptr<NCProjectBase>& project,
                                        std::string_view text, const std::string& sourceName,
                                        const CsvImportOptions& options, Notes* notes = nullptr);

// Appends the batches of the file at `path` (or of `text`, named `sourceName` in messages) to
// the batch dataset `dataSet`, which must still be saved: its rows go after the dataset's
// batches, each batch after the rows of its own; the batch and phase records grow (new phases
// appended). Columns go into variables as an import's do; a column the dataset lacks becomes a
// new column, missing in the earlier rows, and a dataset variable the file lacks is missing in
// the new rows. The batch (phase) column defaults to the project's batch (phase) series label.
// A batch the dataset holds already is refused with its name, unless `replace`, when its rows go
// first. New rows' names are unique within the dataset. `notes` receives the log first, then
// which columns were added and which the file lacked. Throws `NCError` for a dataset without
// batches, a file without the batch column and the import's own refusals; the dataset and the
// project are unchanged then.
void AppendFile(NCDataSet& dataSet, const std::string& path, const CsvImportOptions& options,
                bool replace, Notes* notes = nullptr);
void AppendText(NCDataSet& dataSet, std::string_view text, const std::string& sourceName,
                CsvImportOptions options, bool replace, Notes* notes = nullptr);

// The primary ID that a batch import without an ID column gives the row at 1-based
// `position` of `batch` when the longest batch has `longest` rows: the batch name, '_' and
// the position zero-padded to at least three digits (B07_012).
std::string BatchRowID(const std::string& batch, std::size_t position, std::size_t longest);

}  // namespace ncds::tool::CsvImport

#endif  // NCDS_TOOLS_NCDS_CSVIMPORT_H
