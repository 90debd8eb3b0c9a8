#!/usr/bin/env bash
# The Debian packages of a build: CPack makes them, dpkg-deb lists what each
# holds and its control fields, dpkg installs both into a scratch root (its
# own database, never the machine's), and the installed zorbus-host runs from
# there with the installed library and catalogues.
# Arguments: BUILD_DIR [EMULATOR...]
set -euo pipefail
build=$1
shift
emulator=("$@")
scratch=$(mktemp -d /tmp/zorbus-package.XXXXXX)
trap 'rm -rf "$scratch"' EXIT
failures=0
check() {  # check WHAT COMMAND...: one fact, named when it does not hold
    local what=$1; shift
    if "$@"; then echo "ok: $what"; else echo "FAILED: $what"; failures=$((failures + 1)); fi
}
has() { grep -qF -- "$2" "$1"; }
for tool in dpkg dpkg-deb cpack; do
    command -v "$tool" >/dev/null || { echo "SKIP: $tool is not installed"; exit 77; }
done

cpack -G DEB --config "$build/CPackConfig.cmake" -B "$scratch/packages" >"$scratch/cpack.log" 2>&1 ||
    { cat "$scratch/cpack.log"; exit 1; }
arch=$(sed -n 's/^set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE "\(.*\)")$/\1/p' "$build/CPackConfig.cmake")
[ -n "$arch" ] || arch=$(dpkg --print-architecture)
multiarch=$(sed -n 's/^libdir=\${prefix}\/lib\///p' "$build/zorbus.pc")
library=$scratch/packages/libzorbus8_8.6.0-1_$arch.deb
host=$scratch/packages/zorbus-host_8.6.0-1_$arch.deb
check "two packages for $arch" test -f "$library" -a -f "$host" -a "$(ls "$scratch/packages"/*.deb | wc -l)" = 2
[ "$failures" -eq 0 ] || exit 1

dpkg-deb -c "$library" | awk '{print $6 $7 $8}' >"$scratch/library.list"
for entry in "./usr/lib/$multiarch/libzorbus.so.8.6.0" "./usr/lib/$multiarch/libzorbus.so.8->libzorbus.so.8.6.0" \
             "./usr/lib/$multiarch/libzorbus.so->libzorbus.so.8" ./usr/share/locale/de/LC_MESSAGES/zorbus.mo \
             ./usr/include/zorbus.h "./usr/lib/$multiarch/pkgconfig/zorbus.pc" \
             "./usr/lib/$multiarch/cmake/zorbus/zorbusConfig.cmake" ./usr/share/doc/libzorbus8/copyright \
             ./usr/share/doc/libzorbus8/changelog.Debian.gz ./usr/share/lintian/overrides/libzorbus8; do
    check "the library package holds $entry" grep -qxF -- "$entry" "$scratch/library.list"
done
check "the library package holds no program" test -z "$(grep '/bin/' "$scratch/library.list")"
dpkg-deb -c "$host" | awk '{print $6}' >"$scratch/host.list"
for entry in ./usr/bin/zorbus-host ./usr/bin/zorbus-state ./usr/share/man/man1/zorbus-host.1.gz \
             ./usr/share/man/man1/zorbus-state.1.gz ./usr/share/doc/zorbus-host/copyright \
             ./usr/share/doc/zorbus-host/changelog.Debian.gz; do
    check "the host package holds $entry" grep -qxF -- "$entry" "$scratch/host.list"
done
check "the host package holds no library" test -z "$(grep 'libzorbus' "$scratch/host.list")"
check "library package's architecture" test "$(dpkg-deb -f "$library" Architecture)" = "$arch"
check "library package's shlibs" test "$(dpkg-deb -I "$library" shlibs)" = "libzorbus 8 libzorbus8 (= 8.6.0-1)"
check "host package needs this very library" has <(dpkg-deb -f "$host" Depends) "libzorbus8 (= 8.6.0-1)"
check "host package's architecture" test "$(dpkg-deb -f "$host" Architecture)" = "$arch"

# A scratch root with a database of its own: nothing of the machine's dpkg
# state is read or changed. The dependencies (libc, libstdc++) are the
# machine's, outside that database, hence --force-depends.
root=$scratch/root
mkdir -p "$root/var/lib/dpkg/info" "$root/var/lib/dpkg/updates"
touch "$root/var/lib/dpkg/status"
dpkg --instdir="$root" --admindir="$root/var/lib/dpkg" --log=/dev/null --force-not-root --force-depends \
    --force-architecture --force-script-chrootless -i "$library" "$host" >"$scratch/dpkg.log" 2>&1 ||
    { cat "$scratch/dpkg.log"; exit 1; }
for package in libzorbus8 zorbus-host; do
    check "$package is installed in the scratch root" test "$(dpkg-query --admindir="$root/var/lib/dpkg" \
        -W -f='${Status}' "$package")" = "install ok installed"
done
"${emulator[@]}" "$root/usr/bin/zorbus-host" --version >"$scratch/version" 2>&1 || true
check "installed zorbus-host --version names itself" has "$scratch/version" "zorbus-host 8.6.0"
check "installed zorbus-host --version gives the version record" \
    has "$scratch/version" "component: <diagVersion>8.6.0.3755A</diagVersion>"
check "installed zorbus-host loads the installed library" \
    has "$scratch/version" "library: $root/usr/bin/../lib/$multiarch/libzorbus.so"
(cd "$scratch" && "${emulator[@]}" "$root/usr/bin/zorbus-host" --language de catalog >"$scratch/german" 2>&1) || true
check "the installed library reads its German catalogue" has "$scratch/german" "Root-Hub-Erkennungstest"
echo "$failures failed"
[ "$failures" -eq 0 ]
