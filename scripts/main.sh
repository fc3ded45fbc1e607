#!/usr/bin/env bash
# The main job: install what is needed, build the engine, lay out a product folder with the
# bundled sample profile, and run a real snapshot, change, compare and report cycle under Wine
# through orvalis.exe, printing what the engine wrote.
set -eu
cd "$(dirname "$0")/.."
root=$PWD
scripts/setup.sh

# The shipping build is 32-bit; without 32-bit Wine the x86_64 build stands in.
preset=x64
dpkg -s wine32:i386 >/dev/null 2>&1 && preset=i686
echo "== building ($preset)"
cmake --preset $preset >/dev/null
cmake --build build/$preset -j"$(nproc)" --target HALVERN TAMBRELL DEUOV32 orvalis >/dev/null

product=$root/build/$preset/product
prefix=$root/build/$preset/mainprefix
rm -rf "$product"
mkdir -p "$product/NIMBRA"
cp build/$preset/bin/HALVERN.DLL build/$preset/bin/TAMBRELL.DLL build/$preset/bin/DEUOV32.DLL \
   build/$preset/bin/orvalis.exe build/$preset/bin/*.dtd samples/SAMPLE.GCF "$product/"
for dll in MARLOW CORVID; do
  [ -f build/$preset/bin/$dll.DLL ] && cp build/$preset/bin/$dll.DLL "$product/"
done

run() { echo; echo "\$ orvalis $*"; "$root/tools/wine-run" "$prefix" "$product/orvalis.exe" "$@" | tr -d '\r'; }
winpath() { echo "Z:$1" | tr '/' '\\'; }

# A fresh prefix with the sample application the profile watches.
"$root/tools/wine-run" "$prefix" cmd /c exit >/dev/null 2>&1 || true
sample=$prefix/drive_c/OrvalisSample
rm -rf "$sample"; mkdir -p "$sample/plugins"
printf '[Window]\r\nWidth=800\r\nHeight=600\r\n[Colors]\r\nBackground=blue\r\n' >"$sample/app.ini"
printf 'Sample application\r\nVersion 1.0\r\n' >"$sample/readme.txt"
printf 'plugin one\r\n' >"$sample/plugins/one.dat"

run --help
run settings --max 6 --interval 2
run profiles
# The only profile beside the engine is its default profile.
run snapshot --description "Before the change"

echo; echo "== changing the configuration"
printf '[Window]\r\nWidth=1024\r\nHeight=600\r\n[Colors]\r\nBackground=green\r\n[Fonts]\r\nSize=12\r\n' >"$sample/app.ini"
printf 'Sample application\r\nVersion 1.1\r\n' >"$sample/readme.txt"
printf 'plugin two\r\n' >"$sample/plugins/two.dat"

run snapshot --profile SAMPLE.GCF --description "After the change"
run snapshots || true

echo; echo "== the first snapshot's index file"
tr -d '\r' <"$product/BASE0000.BCF"

out=$product/out; mkdir -p "$out"
run diff file BASE0000.BCF BASE0001.BCF --item 'C:\OrvalisSample\app.ini' --out "$(winpath "$out/app-ini.xml")"
run diff file BASE0000.BCF - --item 'C:\OrvalisSample\readme.txt' --out "$(winpath "$out/readme-live.xml")" --live
run diff dir BASE0000.BCF BASE0001.BCF --item 'C:\OrvalisSample' --out "$(winpath "$out/dir.xml")" || true
run report BASE0000.BCF BASE0001.BCF "$(winpath "$out/ORVALIS.LOG")" || true
for f in "$out"/*; do echo; echo "== $(basename "$f")"; tr -d '\r' <"$f"; done
echo; echo "== the documents against their type definitions"
for f in "$out"/*.xml; do
  xmllint --noout --valid --path "$product" "$f" && echo "valid: $(basename "$f")"
done
echo; echo "== halvern.log"; tr -d '\r' <"$product/halvern.log" 2>/dev/null || true
"$(command -v wineserver || echo /usr/lib/wine/wineserver64)" -k 2>/dev/null || true
