#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Measures which lines and branches of the library the tests reach.
set -euo pipefail

usage() {
    cat <<'TXT'
Usage: scripts/coverage.sh

Builds with clang++'s counters, runs the tests, replays the fuzzers' corpora, and prints for each
folder how many lines and branches they reach; media/, gstreamer/ and the platform's stand-in are
shown for information.
Fails when one of the four folders of the library is below 95 % of its lines or 85 % of its
branches, or when a line is missed for which tests/data/uncovered.txt has no reason.
TXT
}

case "${1-}" in
    "") ;;
    -h | --help) usage; exit 0 ;;
    *) echo "coverage.sh: unknown option $1" >&2; usage >&2; exit 2 ;;
esac

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/lib/packages.sh
. "$root/scripts/lib/packages.sh"
require_packages "${build_packages[@]}" clang libclang-rt-14-dev llvm jq libgtest-dev gnuplot-nox \
    locales
cd "$root"

jobs=$(nproc)
build=$root/build/coverage
reached=$build/reached.tsv
reasons=$root/tests/data/uncovered.txt

# The tests, and the corpora of the fuzzers. The counters lie in the mapped file (%c), one for each program and library (%m), so that what ends
# by a signal or by _exit is counted like the rest.
run_tests() {
    cmake --preset coverage -DDISPLAYENGINE_BUILD_FUZZERS=ON \
        -DCMAKE_CXX_FLAGS_DEBUG="-g -mllvm -runtime-counter-relocation=true \
-Wno-unused-command-line-argument" >/dev/null
    cmake --build --preset coverage -j "$jobs"
    rm -rf "$build/profiles"
    LLVM_PROFILE_FILE=$build/profiles/%m%c.profraw \
        ctest --preset coverage -j "$jobs" --label-exclude '^stress$'
    llvm-profdata merge -sparse "$build"/profiles/*.profraw -o "$build/profile"
}

# Of the platform's inline functions those that only the tests use are not in the libraries; llvm-cov
# counts them in a warning.
export_counts() {
    llvm-cov export "$@" -instr-profile="$build/profile" "$build/libdisplayengine.so" \
        -object "$build/platform/libdisplayengine_platform.so" \
        -object "$build/media/libdisplayengine-media.so" \
        -object "$build/gstreamer/libgstdisplayengine.so" \
        2> >(grep -v 'functions have mismatched data' >&2)
}

# Rows "line FILE NUMBER COUNT" and "branch FILE NUMBER TAKEN NOT-TAKEN". A template's branch counts
# once, reached when any instantiation does; the switches inside the log macros do not count.
collect() {
    export_counts -format=lcov | awk -v root="$root/" -F '[:,]' '
        /^SF:/ { file = substr($2, length(root) + 1) }
        /^DA:/ { print "line\t" file "\t" $2 "\t" $3 }'
    export_counts -format=text | jq -r --arg root "$root/" '
        .data[0].files[] | (.filename | ltrimstr($root)) as $file | .branches | group_by(.[0:2])[] |
        ["branch", $file, .[0][0], (map(.[4]) | add), (map(.[5]) | add)] | @tsv'
}

print_folders() {
    awk -F '\t' '
        { split($2, path, "/"); folder = path[1] }
        $1 == "line" { ++lines[folder]; hit_lines[folder] += $4 > 0 }
        $1 == "branch" { branches[folder] += 2; hit_branches[folder] += ($4 > 0) + ($5 > 0) }
        function share(hit, all) { return all ? 100 * hit / all : 100 }
        END {
            printf "%-10s %20s %22s\n", "folder", "lines", "branches"
            split("common aidl aisr client media gstreamer platform", order, " ")
            for (i = 1; i in order; ++i) {
                f = order[i]
                l = share(hit_lines[f], lines[f])
                b = share(hit_branches[f], branches[f])
                below = i <= 4 && (l < 95 || b < 85)
                failed += below
                printf "%-10s %5d of %5d %5.1f %% %5d of %5d %5.1f %%%s\n", f, hit_lines[f],
                    lines[f], l, hit_branches[f], branches[f], b, below ? "  BELOW" : ""
            }
            exit failed > 0
        }' "$reached"
}

# The library's lines and branches without a hit, as "FILE:NUMBER: WHAT: TEXT".
print_missed() {
    local kind file number true_count false_count what
    while IFS=$'\t' read -r kind file number true_count false_count; do
        case $file in media/* | gstreamer/* | platform/*) continue ;; esac
        what=
        case $kind:$true_count:${false_count-} in
            line:0:) what=missed ;;
            branch:0:0) ;; # its line is missed
            branch:0:*) what="never true" ;;
            branch:*:0) what="never false" ;;
        esac
        [ -z "$what" ] || printf '%s:%d: %s: %s\n' "$file" "$number" "$what" \
            "$(sed -n "${number}s/^ *//p" "$file")"
    done <"$reached"
}

# Compares the missed lines with those that have a reason, by their text: numbers change too often.
compare_with_reasons() {
    local missed=$build/missed.txt known=$build/known.txt new
    print_missed >"$build/missed-at.txt"
    echo "== missed"
    cat "$build/missed-at.txt"
    sed -nE 's/^([^:]*):[0-9]+: missed: (.*[[:alnum:]].*)$/\1: \2/p' "$build/missed-at.txt" |
        sort >"$missed"
    grep -Ev '^(#|$)' "$reasons" | sort >"$known"
    new=$(comm -23 "$missed" "$known")
    comm -13 "$missed" "$known" | sed 's/^/Reached this time, though it has a reason not to be: /'
    if [ -n "$new" ]; then
        printf 'These lines are missed without a reason in %s:\n%s\n' "$reasons" "$new" >&2
        return 1
    fi
}

run_tests
collect >"$reached"
status=0
compare_with_reasons || status=1
echo "== reached"
print_folders || { echo "A folder is below 95 % of its lines or 85 % of its branches." >&2; status=1; }
exit "$status"
