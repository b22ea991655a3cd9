#!/usr/bin/env bash
# installed_test.sh VERSION: on a copy of a machine, installs the packages of /tmp/input, uses what they brought as
# their users would, and purges them.
set -euo pipefail
version=$1
unit=/usr/lib/systemd/system/kv1905d.service

fail() {
    echo "installed_test: $*" >&2
    exit 1
}

quietly() {  # COMMAND...: its output counts only when it fails
    "$@" >/tmp/output 2>&1 || { cat /tmp/output >&2; fail "failed: $*"; }
}

# Polls COMMAND... for 20 seconds.
eventually() {
    local deadline=$((SECONDS + 20))
    until "$@" >/tmp/output 2>&1; do
        ((SECONDS < deadline)) || { cat /tmp/output >&2; return 1; }
        sleep 0.1
    done
}

# Builds the example as its head says, with nothing but the packages, and runs it.
tryExample() {
    # shellcheck disable=SC2046  # words
    quietly cc -Wall -Wextra -Werror /usr/share/kv1905/examples/minimal_host.c $(pkg-config --cflags --libs kv1905) \
        -o /tmp/minimal_host
    quietly /tmp/minimal_host
    grep -q '^message 4711: 02 4e a7 ' /tmp/output || fail "the example sent no answer"
    [[ -f $(pkg-config --variable=plugin kv1905) ]] || fail "kv1905.pc names a plug-in that is not there"
}

settingOf() { sed -n "s/^$1=//p" "$unit"; }

# The daemon as systemd would start it: options, PATH, capabilities and a read-only system as the unit says.
runAsService() {
    local capabilities
    capabilities=$(settingOf CapabilityBoundingSet | sed 's/CAP_/+/g; s/ /,/g' | tr '[:upper:]' '[:lower:]')
    exec unshare --mount bash -c "mount -o remount,bind,ro / && set -a && . '$(settingOf EnvironmentFile)' &&
        export $(settingOf Environment) &&
        exec setpriv --no-new-privs --bounding-set=-all,$capabilities -- $(settingOf ExecStart)"
}

tryService() {
    quietly systemd-analyze verify --man=no "$unit"
    [[ ! -s /tmp/output ]] || fail "systemd-analyze verify says $(cat /tmp/output)"
    quietly systemd-analyze security --offline=true --threshold=30 "$unit"  # tenths; unprotected services have 96

    ip link add lan0 type veth peer name lan1
    ip link set lan0 up && ip link set lan1 up
    local daemon
    echo 'KV1905D_OPTIONS="--interface lan0"' >/etc/default/kv1905d
    runAsService 2>/tmp/log &
    daemon=$!
    eventually kv1905App show devices || { cat /tmp/log >&2; fail "the daemon does not serve its tool"; }
    kill -TERM "$daemon"
    wait "$daemon" || { cat /tmp/log >&2; fail "stopped by SIGTERM, the daemon ends with status $?"; }
    [[ ! -e /tmp/kv1905d.sock ]] || fail "the daemon leaves its socket behind"
}

rm -f /var/lib/man-db/auto-update  # saves indexing every manual page
quietly dpkg -i /tmp/input/*.deb
[[ $(kv1905d --version) == "kv1905d $version" ]] || fail "another version: $(kv1905d --version)"
tryExample
tryService

quietly dpkg --remove kv1905-host libkvmap1905-dev libkvmap1905
grep -q lan0 /etc/default/kv1905d || fail "removal takes the administrator's options along"
quietly dpkg --purge kv1905-host libkvmap1905-dev libkvmap1905
# Deleted files of the machine are devices there; what is everybody's changed with the packages.
left=$(find /tmp/changes ! -type c \( -iname '*kv*1905*' -o ! -type d ! -path '*/var/*' ! -name ld.so.cache \))
[[ -z $left ]] || fail "purged packages leave $left"
