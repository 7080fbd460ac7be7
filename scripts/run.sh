#!/usr/bin/env bash
# Builds ncds and runs its main job: the stream round trip example.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup-deps.sh
cmake --preset release
cmake --build --preset release
./build/release/examples/stream_roundtrip "${1:-build/release/example.ncds}"
