#!/bin/sh
# record_layouts.sh OBJECT AGREED BUILT HEADER...: every record that HEADER... declare has the layout in the file AGREED.
# OBJECT holds their debug information; what they are is written to BUILT: a line with name and size, then offset, size
# and declaration of each member.
set -eu
object=$1 agreed=$2 built=$3
shift 3

for name in $(sed -n 's/^} \([A-Za-z0-9]*\);.*/\1/p' "$@" | LC_ALL=C sort); do
    pahole -C "$name" "$object" | awk -v name="$name" '
        /^}/ { exit }
        /\/\* size: / { print name, $3 + 0; printf "%s", members }
        /; +\/\* +[0-9]+ +[0-9]+ \*\/$/ {
            offset = $(NF - 2); size = $(NF - 1)
            sub(/; +\/\*.*/, ""); gsub(/[ \t]+/, " ")
            members = members "  " offset " " size $0 "\n"
        }'
done >"$built"

[ "$(grep -c '^[A-Z]' "$built")" -gt 0 ] || { echo "record_layouts: no record found in $object" >&2; exit 1; }
diff "$agreed" "$built" || {
    echo "record_layouts: records differ from $agreed (< agreed, > built); hosts that were built earlier break." >&2
    echo "To agree on the new layout deliberately: cp $built $agreed" >&2
    exit 1
}
