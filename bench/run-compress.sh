#!/bin/sh
# Builds the optimised native tree and prints the implode/explode figures of both levels,
# headed by the conditions they were taken under.
# Usage: [PIN=cpu] bench/run-compress.sh [--runs N] [file...]
# PIN=n runs the benchmark on processor n only (taskset); otherwise it is not pinned.
# Where find(1) exists, the exact `find /usr -printf '2048,%s,%T@,%p\n'` listing is measured
# too (the benchmark's own walk cannot see symlink times or directory sizes as lstat does).
set -e
cd "$(dirname "$0")/.."
cmake --preset release >/dev/null
cmake --build build/release -j2 --target compress_bench
listing=build/release/usr-find-listing.txt
extra=""
if [ -d /usr ] && command -v find >/dev/null 2>&1; then
  find /usr -printf '2048,%s,%T@,%p\n' >"$listing" 2>/dev/null || true
  extra="$listing"
fi
cpu=$(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo 2>/dev/null | head -n 1)
echo "build: $(sed -n 's/^CMAKE_BUILD_TYPE:[A-Z]*=//p' build/release/CMakeCache.txt) ($(sed -n 's/^CMAKE_CXX_COMPILER:[A-Z]*=//p' build/release/CMakeCache.txt))"
echo "machine: $(uname -m), ${cpu:-unknown processor}, $(nproc) processors, load average$(uptime | sed 's/.*load average//')"
run=""
if [ -n "$PIN" ]; then
  echo "pinned: processor $PIN"
  run="taskset -c $PIN"
else
  echo "pinned: no"
fi
exec $run build/release/bench/compress_bench "$@" $extra
