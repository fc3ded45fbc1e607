#!/bin/sh
# Builds the optimised native tree and prints the implode/explode figures.
# Usage: bench/run-compress.sh [--runs N] [file...]
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
exec build/release/bench/compress_bench "$@" $extra
