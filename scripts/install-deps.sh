#!/usr/bin/env bash
# Installs what the build and the tests need, only when something is missing.
# Safe to run again; needs root (or sudo) only when it has to install.
set -euo pipefail

need_i386=1
[ "${ZORBUS_NO_M32:-0}" = 1 ] && need_i386=0

pkgs=(cmake ninja-build g++ make pkg-config gettext libpugixml-dev libgtest-dev libgmock-dev
      libbenchmark-dev umockdev libumockdev-dev usbutils sg3-utils clang clang-format
      libclang-rt-14-dev tmux python3 python3-junitparser help2man dpkg-dev abigail-tools valgrind devscripts lintian)
i386_pkgs=(g++-multilib qemu-user libgtest-dev:i386 libgmock-dev:i386 libpugixml-dev:i386)

missing=()
for p in "${pkgs[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ "$need_i386" = 1 ]; then
  for p in "${i386_pkgs[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
  done
fi

# umockdev's preload in 32 bits lets the 32-bit build's host-program tests
# divert to their fake machines. It pulls in :i386 copies of common
# libraries whose versions must equal the installed 64-bit ones, which a
# mirror in the middle of a sync cannot always give: then those tests take
# another road or are skipped with the reason, and nothing else waits for it.
try_i386_preload() {
  [ "$need_i386" = 1 ] || return 0
  dpkg-query -W -f='${Status}' libumockdev0:i386 2>/dev/null | grep -q 'install ok installed' && return 0
  echo "Installing libumockdev0:i386 (optional)"
  if ! ${SUDO:-} apt-get install -y -qq --no-install-recommends libumockdev0:i386 >/dev/null 2>&1; then
    echo "install-deps: libumockdev0:i386 cannot be installed now; the 32-bit host-program tests will say so"
  fi
  return 0
}

SUDO=
[ "$(id -u)" -ne 0 ] && SUDO=sudo
if [ ${#missing[@]} -eq 0 ]; then
  try_i386_preload
  exit 0
fi
echo "Installing: ${missing[*]}"
if [ "$need_i386" = 1 ] && ! dpkg --print-foreign-architectures | grep -qx i386; then
  $SUDO dpkg --add-architecture i386
fi
export DEBIAN_FRONTEND=noninteractive
# A mirror in the middle of a sync makes one index fail now and then; what
# was fetched is still usable, so retry a few times and then go on.
for try in 1 2 3; do
  $SUDO apt-get update -qq && break
  sleep 5
done
for try in 1 2 3; do
  if $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null; then
    try_i386_preload
    exit 0
  fi
  sleep 5
  $SUDO apt-get update -qq || true
done
echo "install-deps: could not install ${missing[*]}" >&2
exit 1
