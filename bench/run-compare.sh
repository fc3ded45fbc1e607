#!/bin/sh
# Builds the optimised native tree and prints the line and INI comparison figures.
# Usage: bench/run-compare.sh [--runs N]
set -e
cd "$(dirname "$0")/.."
cmake --preset release >/dev/null
cmake --build build/release -j2 --target compare_bench
exec build/release/bench/compare_bench "$@"
