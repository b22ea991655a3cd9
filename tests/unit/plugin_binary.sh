#!/bin/sh
# plugin_binary.sh LIBRARY EXPORTS: the built plug-in exports exactly the names in EXPORTS and needs libc, json-c and the
# platform library alone, no C++ runtime.
set -eu
library=$1 exports=$2

nm -D --defined-only "$library" | awk '{print $3}' | LC_ALL=C sort | diff "$exports" - || {
    echo "plugin_binary: exported names differ from $exports (< expected, > found)" >&2
    exit 1
}
needed=$(readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | LC_ALL=C sort | tr '\n' ' ')
[ "$needed" = "libc.so.6 libjson-c.so.5 libkvplatform.so " ] || {
    echo "plugin_binary: $library needs $needed" >&2
    exit 1
}
