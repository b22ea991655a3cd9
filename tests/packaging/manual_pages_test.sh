#!/usr/bin/env bash
# manual_pages_test.sh PAGE...: each page is well-formed, and has the sections that people look for.
set -euo pipefail
failed=0
complain() {
    echo "manual_pages_test: $*" >&2
    failed=1
}

for page in "$@"; do
    # help2man's month without a day is fine; lines of the source may be long.
    lint=$(mandoc -T lint -W warning "$page" | grep -v 'cannot parse date' || true)
    [[ -z $lint ]] || complain "$lint"
    warnings=$(LC_ALL=C.UTF-8 MANROFFSEQ='' man --warnings -E UTF-8 -l -Tutf8 -Z "$page" 2>&1 >/dev/null)
    [[ -z $warnings ]] || complain "$page: $warnings"
    for section in NAME SYNOPSIS OPTIONS "EXIT STATUS" FILES "SEE ALSO"; do
        grep -qix "\.S[HS] \"\?$section:\?\"\?" "$page" || complain "$page has no section $section"
    done
done
exit "$failed"
