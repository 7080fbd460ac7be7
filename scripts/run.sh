#!/usr/bin/env bash
# Builds ncds (release preset) and runs its main job: the `ncds` tool on the example batch
# data. It imports examples/data/fermentation.csv into a new project file, lists the project,
# shows the dataset and exports it to CSV again.
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

# A new project each run; the import creates it.
rm -f "$project" "$export_file"
echo "== ncds import $data $project --id ObsID"
"$ncds" import "$data" "$project" --id ObsID
echo "== ncds list $project"
"$ncds" list "$project"
echo "== ncds show $project 1 --rows 5"
"$ncds" show "$project" 1 --rows 5
echo "== ncds export $project 1 -o $export_file"
"$ncds" export "$project" 1 -o "$export_file"
echo
echo "Project file: $project"
echo "Export:       $export_file"
