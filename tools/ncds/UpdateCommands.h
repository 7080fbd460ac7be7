#ifndef NCDS_TOOLS_NCDS_UPDATECOMMANDS_H
#define NCDS_TOOLS_NCDS_UPDATECOMMANDS_H

// Bringing a derived dataset up to date with its source, batch by batch. An aligned dataset
// keeps its alignment, grids included, and a batch-level dataset what it summarizes; both keep
// the source's batches as they were when they were made (`SourceBatches`). Comparing those with
// the source's batches now tells which batches are new, gone, or hold other rows (replaced):
// - new and replaced batches are aligned onto the stored grids (which do not move: a batch
//   that runs past an absolute grid is cut, or extended, as the alignment says) or summarized
//   into rows of the same columns; a replaced batch's old rows go first;
// - gone batches leave the derived dataset;
// - generated variables of the derived dataset are computed again.
// The batches left alone keep their rows as they are, so the result equals deriving anew from
// the grown source wherever the grids do not depend on the new batches (relative grids, or
// absolute grids that the new batches lie within).

#include <boost/shared_ptr.hpp>
#include <string>

#include "ncds/batch/SourceBatches.h"

class NCDataSet;
class NCProject;

namespace ncds::tool::UpdateCommands {

// What a derived dataset lacks of its source.
using Lag = SourceBatches::Lag;

// The dataset `derived` was made from, loaded from `project`; null when it is not derived.
// Throws `NCError` when that dataset is gone.
boost::shared_ptr<NCDataSet> LoadSource(NCProject& project, const NCDataSet& derived);

// What `derived` lacks of `source`; empty for a dataset that is not derived.
Lag Compare(const NCDataSet& derived, const NCDataSet& source);

// Brings `derived` up to date with `source`, the dataset it was derived from (null when it is
// not derived: then only its generated variables are computed again); returns the log, "up to
// date" when there is nothing to do. `changed` tells whether `derived` changed and must be
// saved. Throws `NCError` for a refusal of the alignment or
// the summaries (a maturity that turns back, a phase the grids do not cover) before
// `derived` changes.
std::string Update(NCDataSet& derived, NCDataSet* source, bool& changed);

}  // namespace ncds::tool::UpdateCommands

#endif  // NCDS_TOOLS_NCDS_UPDATECOMMANDS_H
