#!/usr/bin/env bash
# staged_install_test.sh BUILD LIBDIR LIST: cmake --install puts the files of LIST and no others below $DESTDIR;
# they find each other wherever that is moved to, and an administrator's options survive a second installation.
set -euo pipefail
build=$1 libdir=$2 list=$3
stage=$(mktemp -d)
trap 'rm -rf "$stage"' EXIT

fail() {
    echo "staged_install_test: $*" >&2
    exit 1
}

install() { DESTDIR=$stage/root cmake --install "$build" --prefix /usr >"$stage/log" || fail "$(cat "$stage/log")"; }

install
# The list has no API pages, which are many and there on demand alone; it names libraries' directory as it usually is.
(cd "$stage/root" && find . ! -type d ! -path './usr/share/kv1905/api/*' -printf '%m %P\n') |
    sed "s#usr/$libdir/#usr/lib/#" | LC_ALL=C sort -k2 | diff "$list" - ||
    fail "installed files or modes differ from $list (< expected, > found)"

while read -r file; do
    path=$(readelf -d "$file" 2>/dev/null | sed -n 's/.*R\(UN\)\?PATH).*\[\(.*\)\]/\2/p' || true)
    # shellcheck disable=SC2016  # the loader's $ORIGIN
    [[ -z $path || $path =~ ^'$ORIGIN'(/[a-z0-9._-]+)*$ ]] || fail "$file looks for libraries in $path"
done < <(find "$stage/root/usr" -type f)

if grep -rl "$build\|$stage" "$stage/root"; then fail "the files above name directories of the build"; fi

mv "$stage/root" "$stage/moved"
"$stage/moved/usr/bin/kv1905App" led 02:00:5e:00:02:00 5 --socket "$stage/none" 2>"$stage/log" &&
    fail "no daemon, no success"
grep -q "$stage/none" "$stage/log" || fail "the moved tool does not find its plug-in: $(cat "$stage/log")"
mv "$stage/moved" "$stage/root"

echo 'KV1905D_OPTIONS="--interface lan0"' >"$stage/root/etc/default/kv1905d"
install
grep -q lan0 "$stage/root/etc/default/kv1905d" || fail "a second installation overwrites the administrator's options"
