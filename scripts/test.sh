#!/usr/bin/env bash
# Checks the sources' format, then builds and runs every test, four ways
# (normal, AddressSanitizer + UndefinedBehaviorSanitizer, the real 32-bit
# target under qemu-i386, and ThreadSanitizer), plus the bounded fuzz runs
# and the check that state files cross between the 32- and the 64-bit build.
# Installs what is missing first. Build folders go to build/<kind>. Ends with
# one table: each build and suite, passed / failed / skipped, and each skip's
# reason.
#
# Switches, to rehearse a fresh machine on one that has everything:
#   ZORBUS_HIDE_M32_PRELOAD=1  hides umockdev's 32-bit preload from the 32-bit
#       build's tests even where libumockdev0:i386 is installed: their
#       umockdev-wrapper then preloads the 64-bit library by its path, which a
#       32-bit program cannot load, just as on a machine without the package.
#   ZORBUS_MACHINE_ROADS="umockdev namespace"  the ways, in order, that the
#       host-program tests may bring a fake machine to the program: umockdev's
#       preload, or a private mount namespace (root only). "umockdev" alone
#       leaves the namespace out, so that where the preload is missing or
#       hidden those tests are skipped, each with the reason.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

bash scripts/install-deps.sh

jobs=$(nproc)
fuzz_seconds=${ZORBUS_FUZZ_SECONDS:-30}
failed=()
results=()  # BUILD=REPORT for the closing table

configure_and_build() {
    local dir=$1; shift
    cmake -S "$root" -B "$root/build/$dir" -G Ninja "$@" >"$root/build/$dir.configure.log" 2>&1 ||
        { cat "$root/build/$dir.configure.log"; return 1; }
    ninja -C "$root/build/$dir" -j"$jobs"
}

run_ctest() {
    local dir=$1; shift
    echo "=== tests: $dir"
    results+=("$dir=$root/build/$dir.junit.xml")
    if ! ctest --test-dir "$root/build/$dir" --output-on-failure -j2 --output-junit "$root/build/$dir.junit.xml" "$@"; then
        failed+=("$dir")
    fi
}

mkdir -p build

echo "=== format: every source against .clang-format"
format_ok=1
bash "$root/scripts/format-check.sh" || { format_ok=0; failed+=(format); }

echo "=== build: normal"
configure_and_build normal -DCMAKE_BUILD_TYPE=RelWithDebInfo
run_ctest normal

echo "=== build: address and undefined-behaviour sanitizers"
configure_and_build asan -DCMAKE_BUILD_TYPE=Debug -DZORBUS_SANITIZE=ON -DZORBUS_BENCH=OFF
# gcc's ASan runtime must come first; under the umockdev preload it does not.
ASAN_OPTIONS=verify_asan_link_order=0:detect_leaks=1:abort_on_error=1 \
UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
    run_ctest asan

echo "=== build: 32-bit target (run under qemu-i386)"
configure_and_build m32 -DCMAKE_TOOLCHAIN_FILE="$root/cmake/i686-linux.cmake" \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZORBUS_BENCH=OFF -DZORBUS_UMOCKDEV_TESTS=OFF
if [ "${ZORBUS_HIDE_M32_PRELOAD:-0}" = 1 ]; then
    shim="$root/build/m32-hidden-preload"
    mkdir -p "$shim"
    printf '#!/bin/sh\nexec env LD_PRELOAD=%s${LD_PRELOAD:+:$LD_PRELOAD} "$@"\n' \
        "/usr/lib/$(gcc -print-multiarch)/libumockdev-preload.so.0" >"$shim/umockdev-wrapper"
    chmod +x "$shim/umockdev-wrapper"
    echo "(umockdev's 32-bit preload hidden: ZORBUS_HIDE_M32_PRELOAD=1)"
    PATH="$shim:$PATH" run_ctest m32
else
    run_ctest m32
fi

echo "=== build: thread sanitizer"
configure_and_build tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZORBUS_TSAN=ON -DZORBUS_BENCH=OFF
# Every program, the hosts that drive the library from several threads too;
# a report ends the process with a failure. ThreadSanitizer holds a signal
# back while its thread waits in read, so Ctrl-C at a prompt never reaches
# the host program: the tests that press it on a terminal run in the other
# builds only.
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 run_ctest tsan -E '^Terminal\.|^Reports\.Canceled'

echo "=== state files between the 32- and the 64-bit build"
other="$root/build/other-runs.tsv"
: >"$other"
results+=("checks=$other")
if [ "$format_ok" = 1 ]; then
    printf 'format\tpassed\n' >>"$other"
else
    printf 'format\tfailed\n' >>"$other"
fi
if bash "$root/scripts/cross-state.sh" "$root/build/normal" "$root/build/m32"; then
    echo "1 passed, 0 failed"
    printf 'state files 32/64\tpassed\n' >>"$other"
else
    failed+=(cross-state)
    printf 'state files 32/64\tfailed\n' >>"$other"
fi

if ls "$root"/fuzz/*.cpp >/dev/null 2>&1; then
    echo "=== build: fuzz targets (clang, libFuzzer)"
    : >"$root/build/fuzz-runs.tsv"
    results+=("fuzz=$root/build/fuzz-runs.tsv")
    CC=clang CXX=clang++ configure_and_build fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZORBUS_FUZZ=ON \
        -DZORBUS_TESTS=OFF
    for src in "$root"/fuzz/*.cpp; do
        name=$(basename "$src" .cpp)
        corpus="$root/build/fuzz/corpus-$name"
        mkdir -p "$corpus"
        seeds=()
        [ -d "$root/fuzz/corpus/$name" ] && seeds=("$root/fuzz/corpus/$name")
        dict=()
        [ -f "$root/fuzz/$name.dict" ] && dict=("-dict=$root/fuzz/$name.dict")
        echo "=== fuzz: $name for ${fuzz_seconds}s"
        if ASAN_OPTIONS=detect_leaks=1 "$root/build/fuzz/$name" -max_total_time="$fuzz_seconds" -timeout=10 \
            -rss_limit_mb=2048 -print_final_stats=0 "${dict[@]}" "$corpus" "${seeds[@]}" >"$root/build/fuzz/$name.log" 2>&1; then
            tail -n 2 "$root/build/fuzz/$name.log"
            printf 'fuzz %s\tpassed\n' "$name" >>"$root/build/fuzz-runs.tsv"
        else
            tail -n 60 "$root/build/fuzz/$name.log"
            failed+=("fuzz:$name")
            printf 'fuzz %s\tfailed\n' "$name" >>"$root/build/fuzz-runs.tsv"
        fi
    done
fi

python3 "$root/scripts/test-summary.py" "${results[@]}" || true
if [ ${#failed[@]} -ne 0 ]; then
    echo "FAILED: ${failed[*]}"
    exit 1
fi
echo "All test runs passed."
