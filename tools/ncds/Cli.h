#ifndef NCDS_TOOLS_NCDS_CLI_H
#define NCDS_TOOLS_NCDS_CLI_H

// The commands of the `ncds` tool, run on the arguments of one invocation:
//
//   ncds import DATA.csv PROJECT [--name NAME] [--id COLUMN]... [--sep C] [--decimal C]
//                                [--missing TEXT]... [--batch COLUMN [--phase COLUMN]]
//   ncds list PROJECT
//   ncds show PROJECT DATASET [--rows N]
//   ncds export PROJECT DATASET [-o FILE]
//   ncds delete PROJECT DATASET
//   ncds batches PROJECT DATASET
//   ncds delete-batches PROJECT DATASET [--batch NAME]... [--phase NAME [--in BATCH]]...
//   ncds rename-phase PROJECT DATASET OLD NEW
//   ncds align PROJECT DATASET --maturity VARIABLE [--points N | --phase-points PHASE=N ...]
//                              [--relative] [--smooth] [--extend] [--name NAME]
//
// DATASET is a dataset's number or name. Results go to `out`; errors, hints and the progress
// line go to `err`. Returns the exit code: 0 on success, 1 when the command failed (one
// sentence on `err`; the project is left as it was), 2 for wrong usage. The tool's `main`
// only calls this, so the tests run the commands in the same process.

#include <ostream>

namespace ncds::tool {

// `showProgress`: draw a progress line on `err` for operations that take longer than a
// moment (for a terminal only).
int RunCli(int argc, const char* const* argv, std::ostream& out, std::ostream& err,
           bool showProgress = false);

}  // namespace ncds::tool

#endif  // NCDS_TOOLS_NCDS_CLI_H
