#!/usr/bin/env bash
# Builds the component and the host program, then drives the library as the
# diagnostics host would: the catalogue and the version record.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
bash scripts/install-deps.sh
cmake -S "$root" -B "$root/build/normal" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C "$root/build/normal" -j"$(nproc)" zorbus zorbus-host zorbus_catalogs >/dev/null
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
"$root/build/normal/zorbus-host" catalog version
