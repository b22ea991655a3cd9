#!/usr/bin/env bash
# package_test.sh SOURCE BUILD VERSION: makes the Debian packages, and installs, uses and purges them on a copy of this
# machine: what is written to it lands in memory and is gone afterwards. Exit status 77: not allowed to make one.
set -euo pipefail
source=$1 build=$2 version=$3
packages=$build/packages

fail() {
    echo "package_test: $*" >&2
    exit 1
}

makePackages() {
    rm -rf "$packages"
    cpack --config "$build/CPackConfig.cmake" >"$build/packages.log" 2>&1 ||
        fail "cpack fails: $(cat "$build/packages.log")"
    local made
    made=$(cd "$packages" && printf '%s ' *.deb | sed "s/_$version-[0-9]*_[a-z0-9]*\.deb//g")
    [[ $made == "kv1905-host libkvmap1905-dev libkvmap1905 " ]] || fail "cpack made other packages of $version: $made"
    [[ $(dpkg-parsechangelog -l "$source/packaging/changelog" -S Version) == "$version"-* ]] ||
        fail "packaging/changelog does not begin with version $version"
}

# Tolerated: a plug-in's library has no version in its name, the development host finds it beside itself, cpack's
# scripts call ldconfig, and systemd's helpers for maintainer scripts are not needed for one unit.
lint() {
    local tolerated=(shared-library-lacks-version package-name-doesnt-match-sonames custom-library-search-path
        lacks-ldconfig-trigger maintscript-calls-ldconfig maintainer-script-calls-systemctl
        pkg-config-unavailable-for-cross-compilation initial-upload-closes-no-bugs)
    lintian --allow-root --fail-on error,warning --suppress-tags "$(IFS=, && echo "${tolerated[*]}")" "$packages"/*.deb
}

makePackages
lint || fail "lintian complains"
asRoot=()
if ((EUID != 0)); then
    sudo -n true 2>/dev/null || { echo "package_test: installing needs root, or sudo without a password" >&2; exit 77; }
    asRoot=(sudo -n)
fi
# In a room, whose /tmp is private; its paths are relative, because a room moves what lies in /tmp.
cd "$packages"
scripts=$(realpath --relative-to=. "$source/tests/packaging")
exec "${asRoot[@]}" "$source/lab/room" --net -- bash "$scripts/machine_copy.sh" "$scripts/installed_test.sh" "$version"
