#!/usr/bin/env bash
# Builds ncds with its tests and benchmarks (warnings are errors) and runs the whole test suite.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup-deps.sh
cmake --preset test
cmake --build --preset test
ctest --preset test
