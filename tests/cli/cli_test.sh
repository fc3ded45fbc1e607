#!/usr/bin/env bash
# orvalis.exe as a user runs it: a product folder with the engine, under Wine.
#   cli_test.sh WINE_RUN PREFIX BIN_DIR WORK_DIR
set -u
run=$1 prefix=$2 bin=$3 work=$4
rm -rf "$work"; mkdir -p "$work/product/NIMBRA" "$work/watched"
cp "$bin"/HALVERN.DLL "$bin"/TAMBRELL.DLL "$bin"/MARLOW.DLL "$bin"/CORVID.DLL "$bin"/orvalis.exe "$work/product/"
cp -r "$bin"/xsl "$work/product/"
win() { echo "Z:$1" | tr '/' '\\'; }
printf '[s]\r\nk=1\r\n' >"$work/watched/app.ini"
printf 'Test profile\n[GROUPFILES_START]\n%s\n[GROUPFILES_END]\n[GROUPDIRS_START]\n%s\n[GROUPDIRS_END]\n' \
  "$(win "$work/watched/app.ini")" "$(win "$work/watched")" >"$work/product/TEST.GCF"

fails=0
check() {  # check NAME EXPECTED_STATUS COMMAND... ; output in $out
  # The exit status is the engine's result code; a Unix parent sees its low 8 bits.
  local name=$1 want=$(( $2 & 255 )); shift 2
  "$run" "$prefix" "$work/product/orvalis.exe" "$@" >"$work/out.txt" 2>&1; local got=$?
  out=$(tr -d '\r' <"$work/out.txt")
  if [ "$got" != "$want" ]; then echo "FAIL $name: status $got, wanted $want"; echo "$out"; fails=$((fails + 1)); fi
}
expect() {  # expect NAME PATTERN (grep -E on the last output)
  if ! grep -q -E "$2" <<<"$out"; then echo "FAIL $1: no '$2' in:"; echo "$out"; fails=$((fails + 1)); fi
}

check "usage" 0 --help;                     expect "usage" "orvalis tick"
check "unknown command" 87 frobnicate;      expect "unknown command" "unknown command 'frobnicate'"
for c in settings snapshot profiles snapshots rename delete export import verify info view report diff restore tick; do
  check "help $c" 0 $c --help;              expect "help $c" "^usage: orvalis $c"
done
check "settings" 0 settings --max 2 --interval 5; expect "settings" "MaxScheduleSnapshots  2"
check "profiles" 0 profiles;                expect "profiles" "TEST.GCF +Test profile"
check "snapshot" 0 snapshot --description "first"
check "list" 0 snapshots;                   expect "list" "BASE0000.BCF .* first"
for i in 1 2 3; do check "tick $i" 0 tick; done
expect "tick deletes the oldest" "deleting old scheduled snapshot BASE0001.BCF"
check "list after ticks" 0 snapshots
expect "manual snapshot kept" "BASE0000.BCF"
expect "two scheduled kept" "BASE0002.BCF"
expect "newest kept" "BASE0003.BCF"
if grep -q "BASE0001.BCF" <<<"$out"; then echo "FAIL: BASE0001.BCF should be gone"; fails=$((fails + 1)); fi
printf '[s]\r\nk=2\r\n' >"$work/watched/app.ini"
check "file diff" 0 diff file BASE0000.BCF - --item "$(win "$work/watched/app.ini")" --out "$(win "$work/d.xml")" --live
grep -q 'k=2</LINE>      <CHGFLAG flag="T"/>' "$work/d.xml" || { echo "FAIL: file diff document"; fails=$((fails + 1)); }
check "dir diff" 0 diff dir BASE0000.BCF - --item "$(win "$work/watched")" --out "$(win "$work/dd.xml")" --live
grep -q 'app.ini]]></FNAME><CHGFLAG flag="T"/>' "$work/dd.xml" || { echo "FAIL: dir diff document"; fails=$((fails + 1)); }
check "view" 0 view "$(win "$work/dd.xml")"
grep -q 'class="entry flag-T">app.ini' "$work/dd.html" || { echo "FAIL: the page of the dir document"; fails=$((fails + 1)); }
check "view not ours" 13 view "$(win "$work/watched/app.ini")"
check "missing item" 87 diff file BASE0000.BCF - --item 'C:\nothing.ini' --out "$(win "$work/x.xml")" --live
expect "missing item" "error 87: invalid parameter"
check "rename" 0 rename BASE0000.BCF "renamed"
check "list renamed" 0 snapshots;           expect "list renamed" "BASE0000.BCF .* renamed"
check "delete" 0 delete BASE0000.BCF
check "delete again" 4294967295 delete BASE0000.BCF
# A package: written, checked, read back as a new snapshot; a damaged one refused in words.
check "export" 0 export BASE0002.BCF "$(win "$work/p.pkg")"
expect "export" "export: done in"
check "verify package" 0 verify "$(win "$work/p.pkg")"; expect "verify package" "Intact."
check "import" 0 import "$(win "$work/p.pkg")"
check "verify snapshot" 0 verify BASE0002.BCF;    expect "verify snapshot" "Intact."
printf 'garbage' >"$work/bad.pkg"
check "import damaged" 13 import "$(win "$work/bad.pkg")"
expect "import damaged" "error 13: invalid data"
check "verify missing" 2 verify BASE0099.BCF
# The report, whole, and what a path that cannot be written says.
check "report" 0 report BASE0002.BCF BASE0003.BCF "$(win "$work/r.log")"
grep -q "Orvalis Snapshot Difference Report" "$work/r.log" || { echo "FAIL: report head"; fails=$((fails + 1)); }
check "report unwritable" 110 report BASE0002.BCF "$(win "$work/no/such/r.log")"
expect "report unwritable" "error 110"
check "info" 0 info BASE0002.BCF "$(win "$work/i.xml")"
grep -q "<ORVALISBCF>" "$work/i.xml" || { echo "FAIL: info document"; fails=$((fails + 1)); }
check "restore" 0 restore BASE0002.BCF;           expect "restore" "restore: done in"
check "restore missing" 0 restore BASE0099.BCF   # an unreadable snapshot still takes an undo snapshot

# A registry key and an asset, in an initial snapshot, and their documents against the live system.
"$run" "$prefix" reg add 'HKCU\Software\OrvalisCliTest' /v Mode /d quiet /f >/dev/null 2>&1
mkdir -p "$work/plugins"; printf 'one' >"$work/plugins/one.dat"
printf 'Keys\n[GROUPREGKEYS_START]\nHKCU\\Software\\OrvalisCliTest\n[GROUPREGKEYS_END]\n[GROUPASSET_START]\n%s,0,12288\n[GROUPASSET_END]\n' \
  "$(win "$work/plugins")" >"$work/product/KEYS.GCF"
check "initial snapshot" 0 snapshot --profile KEYS.GCF --initial --description "keys"
keys=$(ls "$work/product" | grep -E '^BASE[0-9]{4}\.BCF$' | sort | tail -1)
check "info initial" 0 info "$keys" "$(win "$work/k.xml")"
grep -q "<FLAGS><!\[CDATA\[32768\]\]></FLAGS>" "$work/k.xml" || { echo "FAIL: initial flag"; fails=$((fails + 1)); }
"$run" "$prefix" reg add 'HKCU\Software\OrvalisCliTest' /v Mode /d loud /f >/dev/null 2>&1
printf 'one, patched' >"$work/plugins/one.dat"
check "reg diff" 0 diff reg "$keys" - --item 'HKCU\Software\OrvalisCliTest' --out "$(win "$work/r.xml")" --live
grep -q '<DATA><!\[CDATA\[loud\]\]></DATA>' "$work/r.xml" || { echo "FAIL: reg diff document"; fails=$((fails + 1)); }
check "asset diff" 0 diff asset "$keys" - --item "$(win "$work/plugins")" --out "$(win "$work/a.xml")" --live
grep -q 'one.dat\]\]></FNAME>' "$work/a.xml" || { echo "FAIL: asset diff document"; fails=$((fails + 1)); }
check "reg diff unknown key" 87 diff reg "$keys" - --item 'HKCU\Software\Nothing' --out "$(win "$work/x.xml")" --live
"$run" "$prefix" reg delete 'HKCU\Software\OrvalisCliTest' /f >/dev/null 2>&1

rm -rf "$work"
if [ $fails -eq 0 ]; then echo "orvalis.exe: all checks passed"; else echo "$fails checks failed"; fi
exit $((fails > 0))
