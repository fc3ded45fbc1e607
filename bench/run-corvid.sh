#!/usr/bin/env bash
# CORVID.DLL speed under Wine: capture of 10,000 files (about 100 MB) with contents beside a plain
# CopyFileA of the same files in the same run, the capture without contents, and the live tree
# and its comparison. The files are made once in build/<preset>/corvid-bench; the exe and the
# wine server run pinned to processor 0 (tools/wine-run does that), in the build's test prefix.
# Usage: bench/run-corvid.sh [x64|i686] [files]
set -eu
cd "$(dirname "$0")/.."
preset=${1:-x64}
files=${2:-10000}
cmake --preset "$preset" >/dev/null
nice -n 10 cmake --build "build/$preset" -j1 --target corvid_bench >/dev/null
work="$PWD/build/$preset/corvid-bench"
mkdir -p "$work"
folder='Z:'$(echo "$work" | tr / '\\')
echo "== CORVID.DLL, $preset, $(nproc) processors, pinned to processor 0 ($( (command -v wine >/dev/null && wine --version) || /usr/lib/wine/wine64 --version 2>/dev/null)) =="
echo "   folder $work ($(df -T "$work" | awk 'NR==2 {print $2}'))"
cd "build/$preset/bin"
../../../tools/wine-run "$PWD/../wineprefix" corvid_bench.exe "$folder" "$files" | tr -d '\r'
