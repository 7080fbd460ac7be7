#!/usr/bin/env bash
# Builds ncds (release preset) and runs its main job: the `ncds` tool on the example batch
# data. It imports examples/data/fermentation.csv into a new project file as a batch dataset,
# lists the project, shows the dataset and its batches, deletes one batch, renames one phase,
# derives a lagged variable, aligns the batches phase by phase on their time into a second
# dataset, stores local centers per batch and phase with it (examples/data/
# fermentation-centers.csv), exports both datasets to CSV again, the aligned one also
# locally centered, summarizes the aligned batches phase by phase into a batch-level dataset
# (one row per batch), merges the batches' final titres into it, combines the two into one
# compound dataset, and exports the batch-level dataset. Then the same project from Python
# (examples/python_walkthrough.py): raw and aligned trajectories of pH in a PNG, the
# batch-level summary as a DataFrame, and the alignment again through Dask.
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
centered_file="${project%.ncds}-centered.csv"
summary_file="${project%.ncds}-batch-level.csv"
picture="${project%.ncds}-pH.png"

# A new project each run; the import creates it.
rm -f "$project" "$export_file" "$aligned_file" "$centered_file" "$summary_file" "$picture"
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
run derive "$project" 1 --name pH_lag2 --formula "Lag(pH, 2)"
run derive "$project" 1 --name GlucoseUse --formula "-Delta(Glucose, 1)"
run show "$project" 1 --rows 4
run export "$project" 1 -o "$export_file"
run align "$project" 1 --maturity Time --relative --phase-points Start=20 \
  --phase-points Growth=40 --phase-points Production=100 --name aligned
run batches "$project" aligned
run export "$project" aligned -o "$aligned_file"
run center "$project" aligned --centers examples/data/fermentation-centers.csv
run export "$project" aligned --centered -o "$centered_file"
run fingerprint "$project" aligned
run summarize "$project" aligned --by-phase --variables Temperature,pH,DissolvedO2,Biomass \
  --stats Mean,StdDev,Min,Max,Slope --name batch-level
run summarize "$project" 1 --variables Biomass,Product --stats Last,Max --name titres
run merge "$project" batch-level titres
run combine "$project" batch-level titres --name summaries
run list "$project"
run show "$project" batch-level --rows 3
run export "$project" batch-level -o "$summary_file"
echo "== python examples/python_walkthrough.py"
PYTHONPATH=build/release/python /usr/bin/python3 examples/python_walkthrough.py "$project" \
  "$picture"
echo
echo "Project file: $project"
echo "Export:       $export_file"
echo "Aligned:      $aligned_file"
echo "Centered:     $centered_file"
echo "Batch level:  $summary_file"
echo "pH plot:      $picture"
