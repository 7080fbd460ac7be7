#ifndef NCDS_TOOLS_NCDS_COMBINECOMMANDS_H
#define NCDS_TOOLS_NCDS_COMBINECOMMANDS_H

// What the tool's commands that combine datasets do: batch-level summaries of a batch dataset,
// merging one dataset into another, and compound datasets. Each throws `NCError` (or the
// library's exception) with a message for the user before anything changes.

#include <boost/shared_ptr.hpp>
#include <string>
#include <vector>

class CompoundDataset;
class CreateBatchLevelInfo;
class NCDataSet;
class NCProject;

namespace ncds::tool::CombineCommands {

// The statistics a summary computes when none are named: those a batch model usually starts
// from.
extern const char* const kDefaultStatistics;

struct SummaryChoice {
  std::string statistics;              // comma-separated names; empty: kDefaultStatistics
  std::vector<std::string> variables;  // variable names; empty: every quantitative variable
  std::string maturity;                // the maturity variable's name; empty: row positions
  bool byPhase = false;
  bool conditions = false;
};

// The description of the summary `choice` asks of `dataSet`, names resolved to IDs. Throws
// `NCError` for a name that is not a variable of the dataset or an unknown statistic.
CreateBatchLevelInfo DescribeSummary(const NCDataSet& dataSet, const SummaryChoice& choice);

// Makes the batch-level dataset `name` numbered `number` (not yet saved, returned in
// `summary`); returns the line that says what was made.
std::string Summarize(const NCDataSet& dataSet, const SummaryChoice& choice,
                      const std::string& name, int number, boost::shared_ptr<NCDataSet>& summary);

// Merges `from` into `into`, overwriting shared cells unless `keep`; returns the merge's log.
std::string Merge(NCDataSet& into, const NCDataSet& from, bool keep);

// Adds compound dataset `name` numbered `number` over the datasets `members` of `project`;
// returns the line that says what it presents.
std::string Combine(NCProject& project, const std::vector<int>& members, const std::string& name,
                    int number);

// The kind of compound `compound` as a listing shows it: "compound of 1, 2", and whether
// members are missing.
std::string Kind(const CompoundDataset& compound);

// The line that describes compound `compound`: its members and size, or which members are gone.
std::string Describe(const CompoundDataset& compound);

// Compound `number` of `project` as a dataset of its own (its values copied, not saved), for
// showing and exporting. Throws `NCError` naming the missing members while any is missing.
boost::shared_ptr<NCDataSet> Materialize(NCProject& project, int number);

}  // namespace ncds::tool::CombineCommands

#endif  // NCDS_TOOLS_NCDS_COMBINECOMMANDS_H
