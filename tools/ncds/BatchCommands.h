#ifndef NCDS_TOOLS_NCDS_BATCHCOMMANDS_H
#define NCDS_TOOLS_NCDS_BATCHCOMMANDS_H

// What the tool's batch commands do to a loaded batch dataset: list its batches, delete
// batches and phases, rename phases, align the batches into a new dataset; and removing the rows of
// any dataset whose observation records are gone. Edits run through the library's deletion of
// batches and phases and are all or nothing: names that do not exist, or an edit that would leave
// the dataset without batches, throw `NCError` naming what is wrong before anything changes.

#include <boost/shared_ptr.hpp>
#include <iosfwd>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "ncds/batch/DataSetAlignment.h"

class NCDataSet;

namespace ncds::tool::BatchCommands {

// A phase to delete: in every batch that has it, or only in batch `batch`.
struct PhaseChoice {
  std::string phase;
  std::string batch;  // empty: every batch
};

// One line per batch: name, included, observations, and its phases with their counts.
void PrintBatches(const NCDataSet& dataSet, std::ostream& out);
// "N batches, M phases" for the dataset's summary line; empty for an ordinary dataset.
std::string Describe(const NCDataSet& dataSet);

// Deletes the named batches and phases; returns the log of what was done. The dataset must
// still be saved. Throws `NCError` for a dataset without batches, an unknown batch or phase,
// a refused change, or when every batch would go.
std::string DeleteBatches(NCDataSet& dataSet, const std::vector<std::string>& batches,
                          const std::vector<PhaseChoice>& phases);
// Removes the rows whose observation records are gone from the project (the batch and phase
// counts follow); returns how many. Throws `NCError` when the project refuses the change.
int DropRowsWithoutRecord(NCDataSet& dataSet);
// The number of rows whose observation records are gone from the project.
int CountRowsWithoutRecord(const NCDataSet& dataSet);

// Renames phase `from` to `to`; when a phase `to` exists the two become one. Throws `NCError`
// for an unknown phase or when a batch would then hold two runs of one phase.
std::string RenamePhase(NCDataSet& dataSet, const std::string& from, const std::string& to);

// How to align: the maturity variable's name and the options of `ncds align`.
struct AlignChoice {
  std::string maturity;
  int points = 100;
  std::vector<std::pair<std::string, int>> phasePoints;  // phase-wise when not empty
  bool relative = false;
  bool smooth = false;
  bool extend = false;
  // Grids over this span (measured over all pieces of the data) rather than this dataset's.
  std::optional<DataSetAlignment::Extent> extent;
};

// The alignment `choice` asks for on `dataSet`, its maturity resolved ("$Time" made first when
// the dataset does not have it). Throws `NCError` for a dataset without batches or without
// the maturity.
DataSetAlignment MakeAlignment(NCDataSet& dataSet, const AlignChoice& choice);
// The alignment `choice` asks for, on the variable `maturity`.
DataSetAlignment MakeAlignment(unsigned long maturity, const AlignChoice& choice);

// Aligns rows held in arrays as `Align` aligns a dataset (the maturity is the rows' column
// `rows.maturity`, not `choice.maturity`), with the same hint for a maturity that turns back.
DataSetAlignment::RowsResult AlignRows(const DataSetAlignment::Rows& rows,
                                       const AlignChoice& choice);

// Aligns the batches of `dataSet` into a new dataset `name` numbered `number` (not yet saved,
// returned in `aligned`); returns the line that says what was done. A maturity that turns
// back without `smooth` is refused with the batch's name and a hint; "$Time" is made first
// when the dataset does not have it.
std::string Align(NCDataSet& dataSet, const AlignChoice& choice, const std::string& name,
                  int number, boost::shared_ptr<NCDataSet>& aligned);

}  // namespace ncds::tool::BatchCommands

#endif  // NCDS_TOOLS_NCDS_BATCHCOMMANDS_H
