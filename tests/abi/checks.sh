#!/usr/bin/env bash
# The built library as a host and a packager see it. One check a call:
#   checks.sh exports LIBRARY            exported names are exactly those of
#                                        exported-symbols.txt, and references
#                                        inside bind inside, host services aside
#   checks.sh abi LIBRARY ARCH           the entry points' ABI against
#                                        libzorbus-ARCH.abi (abidw, abidiff)
#   checks.sh abi-update LIBRARY ARCH    writes libzorbus-ARCH.abi anew
#   checks.sh hardening HARDENED BINARY... -- OBJECT...
#                                        hardening-check on each BINARY; each
#                                        OBJECT (or archive) compiled with
#                                        control flow protection
#   checks.sh lintian HARDENED BUILD     lintian on the .deb files in the build
#                                        folder, or on those CPack makes from it
# Exit status 77 means skipped, after a line "SKIP: reason".
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
skip=77

# Names, one a line, without the comments of a list file.
names() { grep -v '^#' "$1" | grep -v '^$' | LC_ALL=C sort; }

exports() {
    local library=$1 status=0
    diff -u <(names "$here/exported-symbols.txt") \
        <(nm -D --defined-only "$library" | awk '{print $NF}' | LC_ALL=C sort) || {
        echo "exported names differ from exported-symbols.txt (- listed, + exported)"
        status=1
    }
    # A dynamic relocation against a name the library defines itself is a
    # reference that another object could take over: only the host services
    # may have one.
    local services own
    services=$(sed -n 's/^ *\([A-Za-z_][A-Za-z0-9_]*\);.*/\1/p' "$here/../../src/tc/frame/libzorbus.dynamic" |
        LC_ALL=C sort)
    own=$(readelf -rW "$library" | awk 'NF >= 5 && $4 ~ /^[0-9a-f]+$/ && $4 !~ /^0+$/ {print $5}' |
        sed 's/@.*//' | LC_ALL=C sort -u)
    local open
    open=$(LC_ALL=C comm -23 <(echo "$own") <(echo "$services"))
    if [ -n "$open" ]; then
        echo "references inside the library that bind outside it:"
        echo "$open"
        status=1
    fi
    [ -n "$(LC_ALL=C comm -12 <(echo "$own") <(echo "$services"))" ] || {
        echo "no reference to a host service can be taken over by the host"
        status=1
    }
    return $status
}

abi_dump() {
    abidw --no-corpus-path --no-comp-dir-path --no-show-locs --type-id-style hash --exported-interfaces-only \
        --suppressions "$here/abi.suppr" "$1"
}

abi() {
    local library=$1 stored="$here/libzorbus-$2.abi"
    command -v abidiff >/dev/null || { echo "SKIP: abidiff missing (Debian abigail-tools)"; return $skip; }
    [ -f "$stored" ] || { echo "SKIP: no stored ABI for $2 ($stored)"; return $skip; }
    readelf -S "$library" | grep '\.debug_info' >/dev/null ||
        { echo "SKIP: $library has no debug information"; return $skip; }
    local current
    current=$(mktemp)
    trap 'rm -f "$current"' RETURN
    abi_dump "$library" >"$current"
    if ! abidiff --suppressions "$here/abi.suppr" "$stored" "$current"; then
        echo "The ABI of the entry points changed. If that is meant, store it anew:"
        echo "  bash tests/abi/checks.sh abi-update $library $2"
        return 1
    fi
}

abi_update() { abi_dump "$1" >"$here/libzorbus-$2.abi"; }

hardening() {
    local hardened=$1
    shift
    local binaries=() objects=()
    while [ $# -gt 0 ] && [ "$1" != -- ]; do binaries+=("$1"); shift; done
    [ $# -gt 0 ] && shift
    local list
    for list in "$@"; do  # CMake hands a target's objects over as one list
        IFS=';' read -ra list <<<"$list"
        objects+=("${list[@]}")
    done
    [ "$hardened" = 1 ] ||
        { echo "SKIP: not a hardened build (sanitizers, or neither Release nor RelWithDebInfo)"; return $skip; }
    command -v hardening-check >/dev/null || { echo "SKIP: hardening-check missing (Debian devscripts)"; return $skip; }
    # A binary is marked for control flow protection only when every object
    # linked into it is, and Debian 12's own crti.o and crtn.o (libc6-dev)
    # and libpugixml.a are not: no program built there passes that check,
    # Debian's own /usr/bin/ls included. So the check is left to our own
    # objects, which must all carry the mark.
    hardening-check --nocfprotection "${binaries[@]}"
    local unmarked
    unmarked=$(for object in "${objects[@]}"; do
        readelf -n "$object" | awk -v name="$object" '
            /^File: / { if (file != "" && !marked) print file; file = $2; marked = 0 }
            /x86 feature: IBT, SHSTK/ { marked = 1 }
            END { if (file == "") file = name; if (!marked) print file }'
    done)
    if [ -n "$unmarked" ]; then
        echo "objects compiled without -fcf-protection:"
        echo "$unmarked"
        return 1
    fi
    echo "${#objects[@]} object files and archives: all marked for control flow protection"
}

lintian_check() {
    local hardened=$1 build=$2 debs=()
    [ "$hardened" = 1 ] || { echo "SKIP: not a build that is shipped (sanitizers, or a debug build)"; return $skip; }
    command -v lintian >/dev/null || { echo "SKIP: lintian missing"; return $skip; }
    mapfile -t debs < <(find "$build" -maxdepth 2 -name '*.deb' 2>/dev/null | sort)
    if [ ${#debs[@]} -eq 0 ]; then
        # None made yet: CPack makes them from this build, in a folder of
        # their own that goes again afterwards.
        command -v cpack >/dev/null && [ -f "$build/CPackConfig.cmake" ] ||
            { echo "SKIP: no .deb packages in $build and no CPack configuration to make them"; return $skip; }
        local scratch
        scratch=$(mktemp -d /tmp/zorbus-lintian.XXXXXX)
        trap 'rm -rf "$scratch"' RETURN
        cpack -G DEB --config "$build/CPackConfig.cmake" -B "$scratch" >"$scratch/cpack.log" 2>&1 ||
            { cat "$scratch/cpack.log"; return 1; }
        mapfile -t debs < <(find "$scratch" -maxdepth 1 -name '*.deb' | sort)
    fi
    [ ${#debs[@]} -gt 0 ] || { echo "CPack made no .deb package"; return 1; }
    # Errors fail; warnings and notes are printed for a human to weigh.
    lintian --fail-on error "${debs[@]}"
    echo "lintian: no error in ${debs[*]##*/}"
}

case "${1:-}" in
    exports) exports "$2" ;;
    abi) abi "$2" "$3" ;;
    abi-update) abi_update "$2" "$3" ;;
    hardening) shift; hardening "$@" ;;
    lintian) lintian_check "$2" "$3" ;;
    *) sed -n '2,15p' "$0"; exit 2 ;;
esac
