#ifndef NCDS_TOOLS_NCDS_DERIVEDCOMMANDS_H
#define NCDS_TOOLS_NCDS_DERIVEDCOMMANDS_H

// What the tool's commands for derived data do to a loaded dataset: generated variables from
// formulas, local centers read from a file, and the dataset's fingerprint. Each throws
// `NCError` (or the library's exception) with a message for the user before anything of the
// dataset changes.

#include <iosfwd>
#include <string>

class LocalCenteringInfo;
class NCDataSet;

namespace ncds::tool::DerivedCommands {

// Local centers from `path`: an XML configuration file (".xml": the section "LocalCentering"
// with one "LCData" element per center, attributes Batch, Phase, Variable and Center), or
// else CSV with a header row naming the columns batch, phase (may be left out), variable and
// center in any order, ignoring case. Empty or "-99" centers are missing. Separated by
// `separator`; numbers with '.'. Throws `NCError` naming the file (and the line) for a
// missing column, a center that is no number, or a file without centers.
LocalCenteringInfo ReadCenters(const std::string& path, char separator);

// Stores the centers with the dataset (replacing those of the same batch, phase and
// variable); returns the line that says what was stored.
std::string Center(NCDataSet& dataSet, const LocalCenteringInfo& centers);

// Adds generated variable `name` computed by `formula`; returns the line that says so.
std::string Derive(NCDataSet& dataSet, const std::string& name, const std::string& formula);
// Recomputes every generated variable; returns the line that says how many.
std::string Update(NCDataSet& dataSet);

// One line per generated variable of the dataset: its name and its formula over names.
// Nothing for a dataset without generated variables.
void PrintFormulas(const NCDataSet& dataSet, std::ostream& out);

}  // namespace ncds::tool::DerivedCommands

#endif  // NCDS_TOOLS_NCDS_DERIVEDCOMMANDS_H
