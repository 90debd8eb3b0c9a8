#!/usr/bin/env bash
# `cmake --install` into a scratch prefix: the tree holds what a host project
# needs, the example host builds against it through pkg-config and through
# find_package(zorbus) and loads the installed library, and the installed
# library finds its own catalogues.
# Arguments: BUILD_DIR SOURCE_DIR C_COMPILER C_FLAGS TOOLCHAIN_FILE [EMULATOR...]
set -euo pipefail
build=$1 source=$2 cc=$3 cflags=$4 toolchain=$5
shift 5
emulator=("$@")
scratch=$(mktemp -d /tmp/zorbus-install.XXXXXX)
trap 'rm -rf "$scratch"' EXIT
prefix=$scratch/prefix
failures=0
check() {  # check WHAT COMMAND...: one fact, named when it does not hold
    local what=$1; shift
    if "$@"; then echo "ok: $what"; else echo "FAILED: $what"; failures=$((failures + 1)); fi
}
has() { grep -qF -- "$2" "$1"; }

cmake --install "$build" --prefix "$prefix" >"$scratch/install.log"
libdir=$(sed -n 's/^libdir=\${prefix}\///p' "$build/zorbus.pc")
check "libdir is the multiarch folder" test -n "$libdir" -a -d "$prefix/$libdir"
lib=$prefix/$libdir
check "libzorbus.so -> libzorbus.so.8" test "$(readlink "$lib/libzorbus.so")" = libzorbus.so.8
check "libzorbus.so.8 -> libzorbus.so.8.6.0" test "$(readlink "$lib/libzorbus.so.8")" = libzorbus.so.8.6.0
readelf -d "$lib/libzorbus.so.8.6.0" >"$scratch/dynamic"
check "soname libzorbus.so.8" has "$scratch/dynamic" "Library soname: [libzorbus.so.8]"
for file in share/locale/de/LC_MESSAGES/zorbus.mo include/zorbus.h "$libdir/pkgconfig/zorbus.pc" \
            "$libdir/cmake/zorbus/zorbusConfig.cmake" "$libdir/cmake/zorbus/zorbusConfigVersion.cmake" \
            "$libdir/cmake/zorbus/zorbusTargets.cmake" bin/zorbus-host bin/zorbus-state \
            share/man/man1/zorbus-state.1.gz; do
    check "installs $file" test -f "$prefix/$file"
done
if [ -f "$build/zorbus-host.1" ]; then
    check "installs share/man/man1/zorbus-host.1.gz" test -f "$prefix/share/man/man1/zorbus-host.1.gz"
fi

# The installed host program loads the installed library, which reads the
# installed catalogue (the build folder's locale/ is not beside it).
"${emulator[@]}" "$prefix/bin/zorbus-host" --version >"$scratch/version" 2>&1 || true
check "installed zorbus-host loads the installed library" \
    has "$scratch/version" "library: $prefix/bin/../$libdir/libzorbus.so"
check "installed zorbus-host --version gives the version record" \
    has "$scratch/version" "component: <diagVersion>8.6.0.3755A</diagVersion>"
(cd "$scratch" && "${emulator[@]}" "$prefix/bin/zorbus-host" --language de catalog >"$scratch/german" 2>&1) || true
check "the installed library reads its German catalogue" has "$scratch/german" "Root-Hub-Erkennungstest"

# The example host, built the two ways a host project takes the component.
export PKG_CONFIG_PATH=$lib/pkgconfig
check "pkg-config knows zorbus 8.6.0" test "$(pkg-config --modversion zorbus)" = 8.6.0
read -r -a flags <<<"$cflags $(pkg-config --cflags --libs zorbus)"
"$cc" -Wall -Wextra -Werror -o "$scratch/example-pc" "$source/examples/host.c" "${flags[@]}" \
    -Wl,-rpath,"$(realpath "$(pkg-config --variable=libdir zorbus)")"
configure=(-DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_C_COMPILER="$cc")
[ -n "$toolchain" ] && configure+=(-DCMAKE_TOOLCHAIN_FILE="$toolchain")
cmake -S "$source/examples" -B "$scratch/example" -G Ninja "${configure[@]}" >"$scratch/example.log"
ninja -C "$scratch/example" >>"$scratch/example.log"
for example in "$scratch/example-pc" "$scratch/example/zorbus-example"; do
    name=${example#"$scratch"/}
    (cd "$scratch" && LD_DEBUG=libs "${emulator[@]}" "$example" >"$scratch/out" 2>"$scratch/loader") ||
        { echo "FAILED: $name exits $?"; failures=$((failures + 1)); }
    check "$name loads the installed library" has "$scratch/loader" "$lib/libzorbus.so.8"
    check "$name gets the version record" has "$scratch/out" "answer: <diagVersion>8.6.0.3755A</diagVersion>"
    check "$name gets the catalogue" has "$scratch/out" '<catResult><device name="usbDevice"'
done
echo "$failures failed"
[ "$failures" -eq 0 ]
