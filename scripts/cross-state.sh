#!/usr/bin/env bash
# State files cross between the builds: a file written by the 64-bit build is
# read by the 32-bit build and written again byte for byte the same, and the
# reverse. The state comes from a real discovery (field and factory mode) of
# a fixture machine under umockdev, with stub tools first on PATH.
#   cross-state.sh BUILD64 BUILD32
set -euo pipefail
b64=$1
b32=$2
root=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

mkdir -p "$work/stubs" "$work/run"
for tool in mount sync lsusb; do printf '#!/bin/sh\nexit 0\n' >"$work/stubs/$tool"; chmod +x "$work/stubs/$tool"; done

run32() { qemu-i386 -L / "$@"; }

status=0
for machine in "$root"/tests/usb/data/*.devices; do
    for mode in field factory; do
        name="$(basename "$machine" .devices)-$mode"
        bed="$work/bed-$name"
        mkdir -p "$bed/proc/bus/usb"
        cp "$machine" "$bed/proc/bus/usb/devices"
        flag=()
        [ "$mode" = factory ] && flag=(--factory)
        (cd "$work/run" && PATH="$work/stubs:$PATH" UMOCKDEV_DIR="$bed" \
            umockdev-wrapper "$b64/zorbus-host" --library "$b64/libzorbus.so" "${flag[@]}" \
            --state "$work/$name.64" id >/dev/null)
        run32 "$b32/zorbus-state" copy "$work/$name.64" "$work/$name.32"
        "$b64/zorbus-state" copy "$work/$name.32" "$work/$name.64again"
        devices=$("$b64/zorbus-state" show "$work/$name.64" | head -n 1)
        if cmp -s "$work/$name.64" "$work/$name.32" && cmp -s "$work/$name.64" "$work/$name.64again" &&
            [ "$("$b64/zorbus-state" show "$work/$name.64")" = "$(run32 "$b32/zorbus-state" show "$work/$name.64")" ]; then
            echo "ok: $name ($devices)"
        else
            echo "DIFFERS: $name"
            status=1
        fi
    done
done
exit $status
