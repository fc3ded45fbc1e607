#!/usr/bin/env bash
# Every test: the portable core natively under AddressSanitizer and UndefinedBehaviorSanitizer,
# short fuzz runs, and the Windows builds (x86_64 and the shipping i686) under Wine. Installs
# what it needs first. Ends with one line "N passed, N failed".
set -u
cd "$(dirname "$0")/.."
scripts/setup.sh || exit 1
jobs=$(nproc)
passed=0; failed=0; status=0

run_preset() {
  local preset=$1
  echo "== $preset: configure and build"
  if ! cmake --preset "$preset" >"build-$preset.log" 2>&1 || ! cmake --build "build/$preset" -j"$jobs" >>"build-$preset.log" 2>&1; then
    tail -40 "build-$preset.log"; echo "== $preset: BUILD FAILED"; status=1; failed=$((failed + 1)); return
  fi
  rm -f "build-$preset.log"
  echo "== $preset: tests"
  local out; out=$(ctest --test-dir "build/$preset" -j2 --output-on-failure 2>&1); local rc=$?
  echo "$out" | tr -d '\r' | grep -v -E '^ +Start ' 
  [ $rc -ne 0 ] && status=1
  local total fails
  total=$(echo "$out" | sed -n -E 's/.*tests failed out of ([0-9]+).*/\1/p' | tail -1)
  fails=$(echo "$out" | sed -n -E 's/.* ([0-9]+) tests failed out of.*/\1/p' | tail -1)
  passed=$((passed + ${total:-0} - ${fails:-0})); failed=$((failed + ${fails:-0}))
}

for p in native fuzz x64 i686; do run_preset $p; done
for p in x64 i686; do
  [ -d "build/$p/wineprefix" ] && WINEPREFIX=$PWD/build/$p/wineprefix "$(command -v wineserver || echo /usr/lib/wine/wineserver64)" -k 2>/dev/null
done
echo "$passed passed, $failed failed"
exit $status
