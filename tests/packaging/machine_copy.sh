#!/usr/bin/env bash
# machine_copy.sh SCRIPT [ARG...]: inside a room, runs SCRIPT on a copy of the machine, whose /tmp/input is the working
# directory and whose /tmp/changes is what has been written to the copy.
set -euo pipefail
copy=/tmp/copy changes=/tmp/changes
mkdir "$copy" "$changes" /tmp/work
mount -t overlay overlay -o "lowerdir=/.host,upperdir=$changes,workdir=/tmp/work" "$copy"
for directory in proc dev sys; do mount --rbind "/.host/$directory" "$copy/$directory"; done
mount -t tmpfs tmpfs "$copy/run"
mount -t tmpfs tmpfs "$copy/tmp"
mkdir "$copy"/tmp/{input,changes}
mount --bind . "$copy/tmp/input"
mount --bind "$changes" "$copy/tmp/changes"
cp "$1" "$copy/tmp/script"
shift
cd /
exec chroot "$copy" bash /tmp/script "$@"
