#ifndef NCDS_TOOLS_NCDS_CSVEXPORT_H
#define NCDS_TOOLS_NCDS_CSVEXPORT_H

// Writes a dataset as CSV: a header row, then one row per observation. The observation ID
// series come first (see `ExportedSeries`; the primary series headed by the options' header
// or the series' name, the others by their labels), then one column per variable headed by
// its primary ID. Quantitative values are written in the shortest form that reads back to the
// same float; qualitative levels and date-times are decoded by their variable; missing
// values (and values that are not finite) are empty cells. Fields holding the separator, a
// double quote or a line break are quoted (RFC 4180); rows end with LF.
//
// What `CsvImport` reads with the ID columns named by these headers, the same separator and
// decimal character gives the same dataset back: the same IDs, variables, levels and values,
// floats bit for bit, date-times to their unit as long as a float holds them exactly.
//
// Output goes out in blocks of a megabyte; nothing is allocated per cell except the decoded
// text of date-times and of new levels. Throws `NCError` when the dataset has no project or
// the output cannot be written.

#include <iosfwd>
#include <string>
#include <vector>

#include "tools/ncds/CsvOptions.h"

class NCDataSet;
class NCObservations;

namespace ncds::tool::CsvExport {

// The observation ID series an export writes, in order: those the dataset shows, the one
// that holds the primary IDs first, and without the primary series when another series holds
// the same IDs or they are what an import without an ID column makes (row numbers, or batch
// name and position), so that importing the export makes them again.
std::vector<int> ExportedSeries(const NCDataSet& dataSet, const NCObservations& observations);

void Write(const NCDataSet& dataSet, std::ostream& os, const CsvExportOptions& options);
// The file at `path` is replaced; when writing fails it is removed.
void WriteFile(const NCDataSet& dataSet, const std::string& path, const CsvExportOptions& options);
std::string ToText(const NCDataSet& dataSet, const CsvExportOptions& options);

}  // namespace ncds::tool::CsvExport

#endif  // NCDS_TOOLS_NCDS_CSVEXPORT_H
