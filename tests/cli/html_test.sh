#!/usr/bin/env bash
# The HTML views of the engine's documents, rendered by a headless browser: every changed entry is
# on the page, shown in the colour of its flag. The documents are copies of what the main job's
# cycle writes (tests/cli/views/).
#   html_test.sh SOURCE_DIR WORK_DIR
set -u
src=$1 work=$2
browser=$(command -v chromium || command -v chromium-browser || true)
if [ -z "$browser" ]; then echo "no headless browser here: skipped"; exit 77; fi
rm -rf "$work"; mkdir -p "$work"
fails=0
red="rgb\\(176, 0, 32\\)" green="rgb\\(27, 122, 27\\)" amber="rgb\\(160, 90, 0\\)" blue="rgb\\(0, 80, 176\\)"
render() {  # render NAME: the page's DOM after its scripts ran, in $dom
  local name=$1
  ORVALIS_XSL_DIR=$src/exports/xsl "$src/tools/orvalis-view" "$src/tests/cli/views/$name.xml" "$work/$name.html" >/dev/null \
    || { echo "FAIL: no view of $name"; fails=$((fails + 1)); return; }
  timeout 60 "$browser" --headless --no-sandbox --disable-gpu --disable-background-networking --disable-component-update \
    --disable-sync --no-first-run --disable-quic --user-data-dir="$work/profile" --dump-dom "file://$work/$name.html" \
    >"$work/$name.dom" 2>/dev/null
  dom=$(cat "$work/$name.dom")
}
shown() {  # shown NAME COLOUR TEXT: an element in that colour holds the text
  if ! grep -q -E "data-shown=\"$2\">[^<]*$3" <<<"$dom"; then
    echo "FAIL $1: '$3' not shown in $2"; fails=$((fails + 1))
  fi
}
render reg;     shown reg "$green" "Two \(sz\) = enabled"; shown reg "$amber" "Theme \(sz\) = light"
                shown reg "$blue" "Theme \(sz\) = dark";   shown reg "$red" "Width \(dw\)"
render asset;   shown asset "$green" "two.dat"; shown asset "$amber" "one.dat"; shown asset "$blue" "one.dat"
render dir;     shown dir "$amber" "app.ini"; shown dir "$green" "two.dat"
render app-ini; shown app-ini "$amber" "Width=800"; shown app-ini "$blue" "Width=1024"; shown app-ini "$green" "Size=12"
render info
grep -q "<td>Before the change</td>" <<<"$dom" || { echo "FAIL info: no description"; fails=$((fails + 1)); }
render snaplist
row=$(tr -d '\n' <<<"$dom")
grep -q "<td>BASE0000.BCF</td><td>11/23/2026 00:41:22</td><td>Before the change</td>" <<<"$row" \
  || { echo "FAIL snaplist: no row"; fails=$((fails + 1)); }
render proflist
grep -q "<td>SAMPLE.GCF</td><td>Orvalis sample profile</td>" <<<"$(tr -d '\n' <<<"$dom")" \
  || { echo "FAIL proflist: no row"; fails=$((fails + 1)); }
# Trees fold: every folder and key is a details element the reader can close.
grep -q "<details open=\"open\"><summary" "$work/reg.dom" || { echo "FAIL: trees do not fold"; fails=$((fails + 1)); }
if [ $fails -eq 0 ]; then echo "HTML views: all checks passed"; else echo "$fails checks failed"; fi
exit $((fails > 0))
