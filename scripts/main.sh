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
cmake --build build/$preset -j"$(nproc)" --target HALVERN TAMBRELL DEUOV32 MARLOW CORVID orvalis >/dev/null

product=$root/build/$preset/product
prefix=$root/build/$preset/mainprefix
rm -rf "$product"
mkdir -p "$product/NIMBRA"
cp build/$preset/bin/HALVERN.DLL build/$preset/bin/TAMBRELL.DLL build/$preset/bin/DEUOV32.DLL \
   build/$preset/bin/orvalis.exe build/$preset/bin/*.dtd samples/SAMPLE.GCF "$product/"
cp -r build/$preset/bin/xsl "$product/"
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

reg() { "$root/tools/wine-run" "$prefix" reg "$@" >/dev/null 2>&1; }
changes() {  # the lines of a report that mark a change
  tr -d '\r' <"$1" | grep -E '^( \+| -|<-|->|\*\*)' || true
}

run --help
run settings --max 6 --interval 2
run profiles
reg add 'HKCU\Software\OrvalisSample' /v Theme /d light /f
reg add 'HKCU\Software\OrvalisSample' /v Width /t REG_DWORD /d 800 /f
reg add 'HKCU\Software\OrvalisSample\Recent' /v File1 /d 'C:\OrvalisSample\readme.txt' /f
# The only profile beside the engine is its default profile.
run snapshot --description "Before the change"

echo; echo "== changing the configuration: system files, a directory, registry keys and an asset"
printf '[Window]\r\nWidth=1024\r\nHeight=600\r\n[Colors]\r\nBackground=green\r\n[Fonts]\r\nSize=12\r\n' >"$sample/app.ini"
printf 'Sample application\r\nVersion 1.1\r\n' >"$sample/readme.txt"
printf 'plugin two\r\n' >"$sample/plugins/two.dat"
printf 'plugin one, patched\r\n' >"$sample/plugins/one.dat"
reg add 'HKCU\Software\OrvalisSample' /v Theme /d dark /f
reg delete 'HKCU\Software\OrvalisSample' /v Width /f
reg add 'HKCU\Software\OrvalisSample\Plugins' /v Two /d enabled /f

run snapshot --profile SAMPLE.GCF --description "After the change"
run snapshots || true

echo; echo "== the first snapshot's index file"
tr -d '\r' <"$product/BASE0000.BCF"

out=$product/out; rm -rf "$out"; mkdir -p "$out"
run report BASE0000.BCF BASE0001.BCF "$(winpath "$out/ORVALIS.LOG")"
run diff file BASE0000.BCF BASE0001.BCF --item 'C:\OrvalisSample\app.ini' --out "$(winpath "$out/app-ini.xml")"
run diff file BASE0000.BCF - --item 'C:\OrvalisSample\readme.txt' --out "$(winpath "$out/readme-live.xml")" --live
run diff dir BASE0000.BCF BASE0001.BCF --item 'C:\OrvalisSample' --out "$(winpath "$out/dir.xml")" || true
run diff reg BASE0000.BCF BASE0001.BCF --item 'HKEY_CURRENT_USER\Software\OrvalisSample' --out "$(winpath "$out/reg.xml")"
run diff asset BASE0000.BCF BASE0001.BCF --item 'C:\OrvalisSample\plugins' --out "$(winpath "$out/asset.xml")"
run info BASE0000.BCF "$(winpath "$out/info.xml")"
for f in "$out"/*; do echo; echo "== $(basename "$f")"; tr -d '\r' <"$f"; done
echo; echo "== the documents against their type definitions, and a page for people of each"
for f in "$out"/*.xml; do
  xmllint --noout --valid --path "$product" "$f" && echo "valid: $(basename "$f")"
  run view "$(winpath "$f")"
done

echo; echo "== moving the first snapshot: export, check, import"
run export BASE0000.BCF "$(winpath "$out/first.pkg")"
run verify "$(winpath "$out/first.pkg")"
run import "$(winpath "$out/first.pkg")"
run verify BASE0000.BCF

echo; echo "== restoring the first snapshot"
run restore BASE0000.BCF
echo "-- the debug log of the restore"; tr -d '\r' <"$product/halvern.log"
undo=$(tr -d '\r' <"$product/ORVALIS.INI" | sed -n 's/^UNDOBASE=//p')
run snapshot --profile SAMPLE.GCF --description "After the restore"
last=$(ls "$product" | grep -E '^BASE[0-9]{4}\.BCF$' | sort | tail -1)
run report BASE0000.BCF "$last" "$(winpath "$out/after-restore.log")"
left=$(changes "$out/after-restore.log")
if [ -z "$left" ]; then echo "the configuration equals the first snapshot again ($last against BASE0000.BCF: no changes)"
else echo "changes left after the restore:"; echo "$left"; fi

echo; echo "== taking the restore back: restoring its undo base $undo"
run restore "$undo"
echo "Theme is now: $("$root/tools/wine-run" "$prefix" reg query 'HKCU\Software\OrvalisSample' /v Theme 2>/dev/null | tr -d '\r' | awk '/Theme/{print $3}')"
echo "app.ini is now:"; tr -d '\r' <"$sample/app.ini"

echo; echo "== halvern.log"; tr -d '\r' <"$product/halvern.log" 2>/dev/null || true
echo; echo "The report is $out/ORVALIS.LOG; the documents and their HTML pages are in $out."
"$(command -v wineserver || echo /usr/lib/wine/wineserver64)" -k 2>/dev/null || true
