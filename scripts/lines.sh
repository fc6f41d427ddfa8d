#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Counts the lines of code of each folder, and compares them with the project's limits.
set -euo pipefail

usage() {
    cat <<'TXT'
Usage: scripts/lines.sh [REVISION]
  REVISION  show this revision beside the working tree, for example main~5

Counts the lines of the C++ and C files that git tracks, without blank lines and lines of comment.
Fails when the working tree breaks a limit: lines of a folder, the tests' share of all code, 500
lines of a file (350 below platform/), all of them counted, or 60 of a function.
TXT
}

revision=
while [ $# -gt 0 ]; do
    case "$1" in
        -h | --help) usage; exit 0 ;;
        -*) echo "lines.sh: unknown option $1" >&2; usage >&2; exit 2 ;;
        *) revision=$1 ;;
    esac
    shift
done

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/lib/packages.sh
. "$root/scripts/lib/packages.sh"
require_packages git universal-ctags
cd "$root"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# count LABEL: rows "LABEL FILE CODE-LINES ALL-LINES" of the sources below the current folder, whose
# names come as input.
count() {
    xargs awk -v label="$1" '
        FNR == 1 && file != "" { print label, file, code, all }
        FNR == 1 { file = FILENAME; code = all = 0 }
        { ++all }
        !/^[ \t]*(\/\/.*|\/\*.*|\*( .*|\/)?)?$/ { ++code }
        END { if (file != "") print label, file, code, all }'
}

git ls-files -- '*.h' '*.cpp' '*.c' | while read -r file; do
    [ ! -e "$file" ] || echo "$file"
done >"$work/files"
{
    if [ -n "$revision" ]; then
        mkdir "$work/before"
        git archive "$revision" | tar -x -C "$work/before"
        (cd "$work/before" && git -C "$root" ls-tree -r --name-only "$revision" |
            grep -E '\.(h|cpp|c)$' | count before)
    fi
    count now <"$work/files"
} >"$work/counts"

# Rows "FILE LINE END NAME" of all functions.
ctags -x --_xformat='%F %n %e %N' --languages=C,C++ --kinds-C++=f --kinds-C=f -L "$work/files" \
    >"$work/functions"

status=0
awk -v revision="$revision" '
    BEGIN {
        most["platform"] = 3200
        most["bench"] = 1350
        most["demo to media"] = 3600
        share_at_most = 33
        group["common"] = group["aidl"] = group["aisr"] = group["client"] = "the library"
        group["tests"] = group["fuzz"] = "tests + fuzz"
        group["demo"] = group["gstreamer"] = group["media"] = "demo to media"
        rows = split("common,aidl,aisr,client,the library,demo,gstreamer,media,demo to media," \
                     "tools,platform,bench,tests,fuzz,tests + fuzz", row, ",")
        for (i = 1; i <= rows; ++i) known[row[i]] = 1
    }
    {
        split($2, path, "/")
        folder = path[1]
        if (!(folder in known)) { row[++rows] = folder; known[folder] = 1 }
        lines[$1, folder] += $3
        lines[$1, group[folder]] += folder in group ? $3 : 0
        lines[$1, "all"] += $3
    }
    function print_row(name, before, now, wanted, is_broken) {
        printf "%-14s ", name
        if (revision != "") printf "%10s ", before
        printf "%10s  %s%s\n", now, wanted, is_broken ? "  BROKEN" : ""
        broken += is_broken
    }
    function share(label) {
        return lines[label, "all"] ? 100 * lines[label, "tests + fuzz"] / lines[label, "all"] : 0
    }
    END {
        print_row("lines of code", revision, "now", "limit", 0)
        row[++rows] = "all"
        for (i = 1; i <= rows; ++i) {
            name = row[i]
            before = lines["before", name] + 0
            now = lines["now", name] + 0
            if (before == 0 && now == 0) continue
            print_row(name, before, now, name in most ? "at most " most[name] : "",
                      name in most && now > most[name])
            if (name == "tests + fuzz")
                print_row("  of all code", sprintf("%.1f %%", share("before")),
                          sprintf("%.1f %%", share("now")), "at most " share_at_most " %",
                          share("now") > share_at_most)
        }
        exit broken > 0
    }' "$work/counts" || status=1

awk '$1 == "now" && $4 > ($2 ~ /^platform\// ? 350 : 500) {
        print $2 " has " $4 " lines"; found = 1
    }
    END { exit found }' "$work/counts" || status=1
awk '$3 - $2 + 1 > 60 { print $1 ":" $2 ": " $4 " has " $3 - $2 + 1 " lines"; found = 1 }
    END { exit found }' "$work/functions" || status=1
exit "$status"
