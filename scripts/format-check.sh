#!/usr/bin/env bash
# Checks every C and C++ source of the project against .clang-format; with
# --fix, formats them in place instead.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files 'src/*.cpp' 'src/*.h' 'tools/*.cpp' 'tools/*.h' 'tools/*.c' \
    'tests/*.cpp' 'tests/*.h' 'tests/*.c' 'bench/*.cpp' 'bench/*.h' 'fuzz/*.cpp' 'fuzz/*.h' 'examples/*.c')
if [ "${1:-}" = --fix ]; then
    clang-format -i "${files[@]}"
else
    clang-format --dry-run -Werror "${files[@]}"
fi
