#!/usr/bin/env bash
# The difference report and the restore under Wine (x86_64 build, Wine and its server held on one
# processor as the tests run them). Prints each figure with its condition.
#   bench/run-engine.sh [report|restore|all] [N]
set -eu
cd "$(dirname "$0")/.."
scripts/setup.sh >/dev/null
preset=x64
cmake --preset $preset >/dev/null
cmake --build build/$preset -j"$(nproc)" --target engine_bench MARLOW CORVID TAMBRELL >/dev/null
echo "condition: $(nproc) cores, Wine $(dpkg-query -W -f='${Version}' wine64 2>/dev/null || echo '?'), x86_64 build, pinned to one processor"
tools/wine-run "$PWD/build/$preset/wineprefix" build/$preset/bin/engine_bench.exe "${1:-all}" "${2:-10000}" | tr -d '\r'
