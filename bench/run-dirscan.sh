#!/usr/bin/env bash
# Directory scan speed under Wine: capture and live comparison of a 100,000-file tree.
set -eu
cd "$(dirname "$0")/.."
scripts/setup.sh >/dev/null
preset=x64
cmake --preset $preset >/dev/null
cmake --build build/$preset -j"$(nproc)" --target dirscan_bench >/dev/null
tree=${1:-C:\\orvalis-bench-tree}
tools/wine-run "$PWD/build/$preset/wineprefix" build/$preset/bin/dirscan_bench.exe "$tree" "${2:-100000}" | tr -d '\r'
