#!/usr/bin/env bash
# api_pages_test.sh SOURCE OUTPUT LIBRARY: the API pages are made without a complaint, and describe everything that is exported.
set -euo pipefail
source=$1 output=$2 library=$3
"$source/docs/api_pages" doxygen "$output" 0
for name in $(nm -D --defined-only "$library" | awk '{print $3}'); do
    grep -q ">$name<" "$output"/kvMAP1905_8h.html || {
        echo "api_pages_test: $name is exported and has no description" >&2
        exit 1
    }
done
