#!/bin/sh
# plugin_binary.sh LIBRARY HEADER: the built plug-in exports exactly the names that HEADER declares with KVMAP1905_API. It
# needs only libc, json-c and the platform library, not the C++ runtime, and on a 64-bit machine fopen and time by these
# names.
set -eu
library=$1 header=$2
declared=$(grep -v '^#' "$header" | tr '\n' ' ' | grep -o 'KVMAP1905_API [^;([]*' | grep -o '[A-Za-z0-9_]*$' | LC_ALL=C sort)
exported=$(nm -D --defined-only "$library" | awk '{print $3}' | LC_ALL=C sort)
needed=$(readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | LC_ALL=C sort | tr '\n' ' ')

[ "$exported" = "$declared" ] || {
    echo "plugin_binary: exported, but not declared in $header, or the other way round:" >&2
    printf '%s\n' "$exported" "$declared" | LC_ALL=C sort | uniq -u >&2
    exit 1
}
[ "$needed" = "libc.so.6 libjson-c.so.5 libkvplatform.so " ] || {
    echo "plugin_binary: $library needs $needed" >&2
    exit 1
}
if readelf -h "$library" | grep -q ELF64 && nm -D --undefined-only "$library" | grep '64@' >&2; then
    echo "plugin_binary: $library needs the names above" >&2
    exit 1
fi
