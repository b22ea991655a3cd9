#!/bin/bash
# plugin_binary.sh LIBRARY HEADER: the built plug-in exports exactly the names that HEADER declares with KVMAP1905_API (<).
# It needs only libc, json-c and the platform library, not the C++ runtime, and on a 64-bit machine fopen and time by
# these names. With musl, libc has another name and each library exports _init and _fini.
set -eu
library=$1 header=$2
export LC_ALL=C
diff <(grep -v '^#' "$header" | tr '\n' ' ' | grep -o 'KVMAP1905_API [^;([]*' | grep -o '[A-Za-z0-9_]*$' | sort) \
    <(nm -D --defined-only "$library" | awk '{print $3}' | grep -vx '_init\|_fini' | sort)
diff <(printf '%s\n' libc.so.6 libjson-c.so.5 libkvplatform.so) \
    <(readelf -d "$library" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' | sed 's/^libc\.so$/&.6/' | sort)
if readelf -h "$library" | grep ELF64 >/dev/null; then
    ! nm -D --undefined-only "$library" | grep '64@'
fi
