#!/usr/bin/env bash
# MARLOW.DLL speed under Wine, in a prefix of its own (build/<preset>/wineprefix-bench) whose
# registry the benchmark grows once to about 150,000 keys and 400,000 values, so that the test
# prefix stays small. Runs twice: with the exe and the wine server pinned to processor 0
# (taskset -c 0), and unpinned as a user runs it.
# Usage: bench/run-marlow.sh [x64|i686]
set -eu
cd "$(dirname "$0")/.."
preset=${1:-x64}
cmake --preset "$preset" >/dev/null
nice -n 10 cmake --build "build/$preset" -j1 --target marlow_bench >/dev/null
prefix="$PWD/build/$preset/wineprefix-bench"
server=$(command -v wineserver || echo /usr/lib/wine/wineserver64)
exe="build/$preset/bin/marlow_bench.exe"
folder='Z:'$(echo "$PWD/build/$preset" | tr / '\\')
tools/wine-run "$prefix" cmd /c exit >/dev/null 2>&1 || true   # creates the prefix once
for mode in pinned unpinned; do
  WINEPREFIX="$prefix" "$server" -k >/dev/null 2>&1 || true
  WINEPREFIX="$prefix" "$server" -w >/dev/null 2>&1 || true
  echo "== $mode ($(nproc) processors) =="
  if [ "$mode" = pinned ]; then
    WINEPREFIX="$prefix" taskset -c 0 "$server" -p60 </dev/null >/dev/null 2>&1
    taskset -c 0 tools/wine-run "$prefix" "$exe" "$folder" | tr -d '\r'
  else
    WINEPREFIX="$prefix" "$server" -p60 </dev/null >/dev/null 2>&1
    ORVALIS_WINE_CPU=none tools/wine-run "$prefix" "$exe" "$folder" | tr -d '\r'
  fi
done
WINEPREFIX="$prefix" "$server" -k >/dev/null 2>&1 || true
