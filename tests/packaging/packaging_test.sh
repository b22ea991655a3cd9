#!/usr/bin/env bash
# packaging_test.sh api|install|debian|openwrt BUILD LIBDIR VERSION: one test of what others receive.
#   api      the API pages are made without a warning
#   install  cmake --install puts exactly the files of packaging/files.txt below $DESTDIR, and they work wherever it is
#   debian   the packages install, work, and leave nothing when they are purged, on a copy of this machine in memory;
#            exit status 77 without the right to make one
#   openwrt  the package directory installs files that exist; its start script starts the daemon with options that it knows
set -euo pipefail

fail() {
    echo "packaging_test: $*" >&2
    exit 1
}

quietly() {  # COMMAND...: prints the output of a failure
    "$@" >"$log" 2>&1 || { cat "$log" >&2; fail "failed: $*"; }
}

testApi() {
    "$source/docs/api_pages" doxygen "$build/tests/api_pages" 0
}

testInstall() {
    local root=$stage/root
    quietly env DESTDIR="$root" cmake --install "$build" --prefix /usr
    # The list names the libraries' usual directory, and leaves out the API pages, which are made only on request.
    (cd "$root" && find . ! -type d ! -path './usr/share/kv1905/api/*' -printf '%m %P\n') | sed "s#usr/$libdir/#usr/lib/#" |
        LC_ALL=C sort -k2 | diff "$source/packaging/files.txt" - || fail "files or modes differ from packaging/files.txt"
    if grep -rl "$build\|$stage" "$root"; then fail "these files name directories of the build"; fi

    mv "$root" "$stage/moved"
    "$stage/moved/usr/bin/kv1905App" led 02:00:5e:00:02:00 5 --socket "$stage/none" 2>"$log" && fail "success without a daemon"
    grep -q "$stage/none" "$log" || fail "the moved tool does not find its plug-in: $(cat "$log")"
}

testDebian() {
    local packages=$build/packages asRoot=(sudo -n) command
    rm -rf "$packages"
    read -ra command < <(sed -n 's/^    \(cpack .*[^ ]\) *#.*/\1/p' "$source/README.md")
    quietly "${command[@]/build\/release/$build}"
    lintian --allow-root --fail-on error,warning "$packages"/*.deb || fail "lintian complains"
    ((EUID != 0)) || asRoot=()
    "${asRoot[@]}" true 2>/dev/null || { echo "packaging_test: this needs root, or sudo without a password" >&2; exit 77; }
    # Uses relative paths, because a room has its own /tmp.
    cd "$packages"
    "${asRoot[@]}" "$source/lab/room" --net -- bash "$(realpath --relative-to=. "$0")" copy . . "$version"
}

# Inside a room: runs the last part on a copy of the machine, with the packages in /tmp/input. All changes of the copy
# are visible in its /tmp/changes.
testCopy() {
    local copy=/tmp/copy directory
    mkdir "$copy" /tmp/{changes,work}
    mount -t overlay overlay -o "lowerdir=/.host,upperdir=/tmp/changes,workdir=/tmp/work" "$copy"
    for directory in proc dev sys; do mount --rbind "/.host/$directory" "$copy/$directory"; done
    for directory in run tmp; do mount -t tmpfs tmpfs "$copy/$directory"; done
    mkdir "$copy"/tmp/{input,changes}
    mount --bind . "$copy/tmp/input"
    mount --bind /tmp/changes "$copy/tmp/changes"
    cp "$0" "$copy/tmp/script"
    cd /
    chroot "$copy" bash /tmp/script packages . . "$version"
}

testPackages() {
    local names=(kv1905-host libkvmap1905-dev libkvmap1905) examples=/usr/share/kv1905/examples options plugin left
    rm -f /var/lib/man-db/auto-update  # saves the index of all manual pages
    quietly dpkg -i /tmp/input/libkvmap1905*.deb
    read -ra options < <(pkg-config --cflags kv1905)
    plugin=$(pkg-config --variable=plugin kv1905)
    quietly cc -Wall -Wextra -Werror $examples/minimal_host.c "${options[@]}" -o /tmp/example
    # Uses the example as platform library, because the daemon's package is not installed yet.
    quietly cc -Wall -Wextra -Werror -shared -fPIC $examples/minimal_platform.c "${options[@]}" -o /tmp/libkvplatform.so
    LD_LIBRARY_PATH=/tmp quietly /tmp/example "$plugin"
    quietly dpkg -i /tmp/input/kv1905-host*.deb
    { printf 'KV1905_VERSION\nKV1905_VERSION_MAJOR.KV1905_VERSION_MINOR.KV1905_VERSION_PATCH\n' |
        cc -E -P "${options[@]}" -include kv1905/version.h - | tr -d '" '
      pkg-config --modversion kv1905
      dpkg-query -W -f '${Version}\n' "${names[@]}"
      for program in kv1905d kv1905App kv1905-view; do $program --version | cut -d' ' -f2; done
    } >"$log"
    [[ $(sort -u "$log") == "$version" ]] || fail "not all versions are $version: $(cat "$log")"
    quietly /tmp/example "$plugin"
    tshark -G protocols 2>"$log" | grep -qw kv1905 || fail "tshark does not find the dissector: $(cat "$log")"
    testService /usr/lib/systemd/system/kv1905d.service
    mkdir -p /data
    quietly /usr/libexec/kv1905/kcfg set NAT_INTF_SETTING.1.password secret
    quietly /usr/libexec/kv1905/nvram set wl0_passphrase=secret
    quietly systemctl enable kv1905d.service
    quietly dpkg --remove "${names[@]}"
    grep -q lan0 /etc/default/kv1905d || fail "removal deletes the administrator's options"
    quietly dpkg --purge "${names[@]}"
    # A deleted file of the machine is a device there; any package changes the files below /var and ld.so.cache.
    left=$(find /tmp/changes ! -type c \( -iname '*kv*1905*' -o ! -type d ! -path '*/var/*' ! -name ld.so.cache \))
    [[ -z $left ]] || fail "purged packages leave $left"
    [[ ! -e /tmp/kv1905_datamodel.json ]] || fail "purged packages leave the JSON file"
}

# The daemon with the options, PATH, capabilities and read-only system of its unit.
testService() {
    local unit=$1 capabilities daemon deadline=$((SECONDS + 20))
    settingOf() { sed -n "s/^$1=//p" "$unit"; }
    quietly systemd-analyze verify --man=no "$unit"
    [[ ! -s $log ]] || fail "systemd-analyze verify reports $(cat "$log")"
    ip link add lan0 type veth peer name lan1
    ip link set lan0 up && ip link set lan1 up
    echo 'KV1905D_OPTIONS="--interface lan0"' >/etc/default/kv1905d
    capabilities=$(settingOf CapabilityBoundingSet | sed 's/CAP_/+/g; s/ /,/g' | tr '[:upper:]' '[:lower:]')
    unshare --mount bash -c "mount -o remount,bind,ro / && set -a && . '$(settingOf EnvironmentFile)' &&
        export $(settingOf Environment) && exec setpriv --no-new-privs --bounding-set=-all,$capabilities \
        -- $(settingOf ExecStart)" 2>/tmp/daemon &
    daemon=$!
    until kv1905App show devices >"$log" 2>&1; do
        ((SECONDS < deadline)) || fail "the daemon does not serve its tool: $(cat "$log" /tmp/daemon)"
        sleep 0.1
    done
    kill -TERM "$daemon"
    wait "$daemon" || fail "stopped by SIGTERM, the daemon ends with status $?: $(cat /tmp/daemon)"
}

testOpenwrt() {
    local image=$stage/image words
    mkdir "$image"
    quietly env DESTDIR="$stage/root" cmake --install "$build" --prefix /usr
    [[ $libdir == lib ]] || mv "$stage/root/usr/$libdir/kv1905" "$stage/root/usr/lib/"
    touch "$stage/package.mk" "$stage/cmake.mk"
    cat >"$stage/rules.mk" <<'MAKE'
define BuildPackage
all:: ; $(call Package/$(1)/install,$(IMAGE))
endef
MAKE
    quietly make -C "$source/packaging/openwrt" TOPDIR="$stage" INCLUDE_DIR="$stage" IMAGE="$image" CP="cp -a" \
        PKG_INSTALL_DIR="$stage/root" INSTALL_DIR="install -d" INSTALL_BIN=install INSTALL_CONF="install -m 600"

    # OpenWrt's functions for settings and services, as far as the script calls them.
    cat >"$stage/functions" <<'SH'
setting() { sed -n "s/^[[:space:]]*$1 $2 '\(.*\)'$/\1/p" "$image/etc/config/kv1905"; }
config_load() { [ "$1" = kv1905 ]; }
config_get() { eval "$1='$(setting option "$3")'"; }
config_get_bool() { config_get "$@"; }
config_list_foreach() { for value in $(setting list "$2"); do "$3" "$value" "$4"; done; }
procd_open_instance() { :; }
procd_close_instance() { :; }
procd_append_param() { [ "$1" != command ] || { shift && echo "$@"; }; }
procd_set_param() { procd_append_param "$@"; }
SH
    export image
    start() { busybox sh -euc ". '$stage/functions'; . '$image/etc/init.d/kv1905d'; start_service"; }
    [[ -z $(start) ]] || fail "OpenWrt starts the daemon before it is enabled"
    sed -i "s/enabled '0'/enabled '1'/" "$image/etc/config/kv1905"
    read -ra words <<<"$(start | tr '\n' ' ')"
    [[ ${words[*]} == "/usr/bin/kv1905d --interface lan1 --interface lan2 --radio wl0,02:00:00:00:00:01,0x0103 --bridge br-lan --settings-from controller" ]] ||
        fail "OpenWrt starts ${words[*]}"
    "$source/lab/room" --net -- "$build/bin/kv1905d" "${words[@]:1}" >"$log" 2>&1 || true
    grep -q 'lan1: no such interface' "$log" || fail "the daemon does not understand its options: $(cat "$log")"
}

test=$1 build=$2 libdir=$3 version=$4
source=$(realpath "$(dirname "$0")/../..")
stage=$(mktemp -d) log=$stage/log
trap 'rm -rf "$stage"' EXIT
"test${test^}"
