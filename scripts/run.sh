#!/usr/bin/env bash
# Builds ncds (release preset) and runs its main job: the `ncds` tool on the example batch
# data. It imports examples/data/fermentation.csv into a new project file as a batch dataset,
# lists the project, shows the dataset and its batches, deletes one batch, renames one phase,
# aligns the batches phase by phase on their time into a second dataset and exports both to
# CSV again.
#   scripts/run.sh [PROJECT]    default: build/release/fermentation.ncds
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup-deps.sh
cmake --preset release
cmake --build --preset release

ncds=build/release/tools/ncds/ncds
data=examples/data/fermentation.csv
project="${1:-build/release/fermentation.ncds}"
export_file="${project%.ncds}-export.csv"
aligned_file="${project%.ncds}-aligned.csv"

# A new project each run; the import creates it.
rm -f "$project" "$export_file" "$aligned_file"
run() {
  echo "== ncds $*"
  "$ncds" "$@"
}
run import "$data" "$project" --id ObsID --batch Batch --phase Phase
run list "$project"
run show "$project" 1 --rows 5
run batches "$project" 1
run delete-batches "$project" 1 --batch B03
run rename-phase "$project" 1 Lag Start
run batches "$project" 1
run export "$project" 1 -o "$export_file"
run align "$project" 1 --maturity Time --relative --phase-points Start=20 \
  --phase-points Growth=40 --phase-points Production=100 --name aligned
run batches "$project" aligned
run export "$project" aligned -o "$aligned_file"
echo
echo "Project file: $project"
echo "Export:       $export_file"
echo "Aligned:      $aligned_file"
