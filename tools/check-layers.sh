#!/usr/bin/env bash
# Include direction: a file may include headers of its own layer or of a lower one, never of a
# higher one. Layers, lowest first:
#   base < compress < engine < store < profiles < items < drivers < exports
# Within items/, a kind includes only its own folder's headers (kinds never lean on each other).
# The companion libraries use only base/ and compress/; orvalis.exe only base/.
# Prints every offending include and exits 1 when there is one.
#   check-layers.sh [SOURCE_DIR]
set -u
cd "${1:-$(dirname "$0")/..}" || exit 2
rank() {
  case $1 in
    base) echo 0 ;; compress) echo 1 ;; engine) echo 2 ;; store) echo 3 ;; profiles) echo 4 ;;
    items) echo 5 ;; drivers) echo 6 ;; exports) echo 7 ;; *) echo "" ;;
  esac
}
bad=0
while IFS= read -r file; do
  top=${file%%/*}
  case $top in
    companions) limit=1 ;;
    cli) limit=0 ;;
    *) limit=$(rank "$top"); [ -n "$limit" ] || continue ;;
  esac
  while IFS= read -r inc; do
    itop=${inc%%/*}
    r=$(rank "$itop")
    [ -n "$r" ] || continue
    if [ "$r" -gt "$limit" ]; then
      echo "$file includes $inc: $itop/ is above ${top}/"; bad=1
    elif [ "$top" = items ] && [ "$itop" = items ]; then
      kind=$(echo "$file" | cut -d/ -f2); ikind=$(echo "$inc" | cut -d/ -f2)
      [ "$kind" = "$ikind" ] || { echo "$file includes $inc: items/$kind leans on items/$ikind"; bad=1; }
    fi
  done < <(sed -n -E 's/^[[:space:]]*#[[:space:]]*include[[:space:]]+"([^"]+)".*/\1/p' "$file")
done < <(find base compress engine store profiles items drivers exports companions cli \
           -type f \( -name '*.h' -o -name '*.cpp' -o -name '*.c' -o -name '*.rc' \) 2>/dev/null | sort)
[ $bad = 0 ] && echo "include direction: every include points down"
exit $bad
