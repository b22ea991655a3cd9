#!/bin/bash
# plugin_binary.sh LIBRARY HEADERS MAJOR: the built plug-in exports exactly the names that kvMAP1905.h declares with
# KVMAP1905_API (<) and that kv1905_load.h lists. It has the name that hosts load, and needs only libc, json-c and the
# platform library, not the C++ runtime, and on a 64-bit machine fopen and time by these names. With musl, libc has
# another name and each library exports _init and _fini.
set -eu
library=$1 headers=$2 major=$3
export LC_ALL=C
names=$(nm -D --defined-only "$library" | awk '{print $3}' | grep -vx '_init\|_fini' | sort)
diff <(grep -v '^#' "$headers/kvMAP1905.h" | tr '\n' ' ' | grep -o 'KVMAP1905_API [^;([]*' |
    grep -o '[A-Za-z0-9_]*$' | sort) <(echo "$names")
diff <(grep -o ' X([^)]*' "$headers/kv1905_load.h" | cut -c4- | grep -vx name | sort) <(echo "$names")
diff <(printf '%s\n' libc.so.6 libjson-c.so.5 libkvMAP1905.so libkvplatform.so) \
    <(readelf -d "$library" | sed -n 's/.*(\(NEEDED\|SONAME\)).*\[\(.*\)\]/\2/p' | sed 's/^libc\.so$/&.6/' | sort)
# Each layout assertion names its major version. An assertion that was changed to fit a changed record is not noticed.
for header in kvMAP1905.h kcfg.h; do
    grep -q "\"not the layout of major version $major\"" "$headers/$header" ||
        { echo "$header: the layouts are another major version's; check each, then the text" >&2 && exit 1; }
done
if readelf -h "$library" | grep ELF64 >/dev/null; then
    ! nm -D --undefined-only "$library" | grep '64@'
fi
