#!/usr/bin/env bash
# Builds the component and the host program, then drives the library as the
# diagnostics host would against the bundled example machine (a fixture
# tree run under umockdev; stub mount/sync/lsusb that do nothing): the
# catalogue, discovery in field and in factory mode, and a root hub test.
# The host program prints them as tables, log lines and results; add --xml
# to its options below for the component's own XML.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
bash scripts/install-deps.sh
cmake -S "$root" -B "$root/build/normal" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C "$root/build/normal" -j"$(nproc)" zorbus zorbus-host zorbus_catalogs >/dev/null

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r "$root/tests/fixtures/example" "$work/machine"
mkdir -p "$work/stubs" "$work/run"
for tool in mount sync lsusb; do printf '#!/bin/sh\nexit 0\n' >"$work/stubs/$tool"; chmod +x "$work/stubs/$tool"; done
host() {
    (cd "$work/run" && PATH="$work/stubs:$PATH" UMOCKDEV_DIR="$work/machine" \
        umockdev-wrapper "$root/build/normal/zorbus-host" "$@")
}

status=0
echo "### field mode: catalogue, discovery, root hub test"
host catalog id test usbDevice0 rootHubTest || status=$?
echo
echo "### factory mode: catalogue and discovery"
host --factory catalog id || status=$?
exit "$status"
