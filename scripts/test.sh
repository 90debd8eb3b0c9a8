#!/usr/bin/env bash
# Builds and runs every test, four ways (normal, AddressSanitizer +
# UndefinedBehaviorSanitizer, the real 32-bit target under qemu-i386, and
# ThreadSanitizer), plus the bounded fuzz runs and the check that state
# files cross between the 32- and the 64-bit build.
# Installs what is missing first. Build folders go to build/<kind>.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

bash scripts/install-deps.sh

jobs=$(nproc)
fuzz_seconds=${ZORBUS_FUZZ_SECONDS:-30}
failed=()

configure_and_build() {
    local dir=$1; shift
    cmake -S "$root" -B "$root/build/$dir" -G Ninja "$@" >"$root/build/$dir.configure.log" 2>&1 ||
        { cat "$root/build/$dir.configure.log"; return 1; }
    ninja -C "$root/build/$dir" -j"$jobs"
}

run_ctest() {
    local dir=$1; shift
    echo "=== tests: $dir"
    if ! ctest --test-dir "$root/build/$dir" --output-on-failure -j2 "$@"; then
        failed+=("$dir")
    fi
}

mkdir -p build

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
run_ctest m32

echo "=== build: thread sanitizer"
configure_and_build tsan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZORBUS_TSAN=ON -DZORBUS_BENCH=OFF
# Every program, the hosts that drive the library from several threads too;
# a report ends the process with a failure. ThreadSanitizer holds a signal
# back while its thread waits in read, so Ctrl-C at a prompt never reaches
# the host program: the terminal tests run in the other builds only.
TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1 run_ctest tsan -E '^Terminal\.'


echo "=== state files between the 32- and the 64-bit build"
if bash "$root/scripts/cross-state.sh" "$root/build/normal" "$root/build/m32"; then
    echo "1 passed, 0 failed"
else
    failed+=(cross-state)
fi

if ls "$root"/fuzz/*.cpp >/dev/null 2>&1; then
    echo "=== build: fuzz targets (clang, libFuzzer)"
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
        else
            tail -n 60 "$root/build/fuzz/$name.log"
            failed+=("fuzz:$name")
        fi
    done
fi

if [ ${#failed[@]} -ne 0 ]; then
    echo "FAILED: ${failed[*]}"
    exit 1
fi
echo "All test runs passed."
