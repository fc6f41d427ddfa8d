#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Usage: InstalledTools.sh BUILD_DIR CMAKE CXX VERSION [EMULATOR...]
# Installs the build into a folder of its own, runs the tools from there, and follows the page for
# makers of processing libraries from the template to the check.
set -euo pipefail
build=$1 cmake=$2 cxx=$3 version=$4
shift 4

fail() { echo "$1" >&2; exit 1; }

work=$(mktemp -d)
service=
trap '[ -z "$service" ] || kill "$service"; rm -rf "$work"' EXIT
cd "$work"
"$cmake" --install "$build" --prefix "$work/staged" >/dev/null
mv staged prefix # nothing in it may know where it was
prefix=$work/prefix

for tool in dectl displayengine-service aisr-check; do
    [ "$("$@" "$prefix/bin/$tool" --version)" = "$tool $version" ] || fail "$tool --version"
    "$@" "$prefix/bin/$tool" --help >help
    grep -q -- --version help || fail "$tool --help"
    if [ -e "$build/man/$tool.1" ]; then
        grep -q '^\.SH OPTIONS' "$prefix/share/man/man1/$tool.1" || fail "the page of $tool"
    fi
done

mkdir -m 700 run
export DISPLAYENGINE_RUNTIME_DIR=$work/run
mkfifo report
"$@" "$prefix/bin/displayengine-service" </dev/null >report &
service=$!
exec 3<report
read -r line <&3
[ "$line" = ready ] || fail "the service says '$line'"
"$@" "$prefix/bin/dectl" dump --json >dump.json
grep -q "\"version\":\"$version\"" dump.json || fail "the dump: $(cat dump.json)"

# Completes the last of the words given, and checks for the answer that is the first one.
completes() {
    local expected=$1
    shift
    COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)) COMPREPLY=()
    set +e # what finds nothing fails
    "$function" "$1"
    set -e
    [ "${COMPREPLY[*]}" = "$expected" ] || fail "'$*' completes to '${COMPREPLY[*]}'"
}
if [ $# -eq 0 ]; then
    function=_dectl
    # shellcheck source=tools/completion/dectl
    . "$prefix/share/bash-completion/completions/dectl"
    completes "folding frame-rate" "$prefix/bin/dectl" f
    completes "--version --verbose" "$prefix/bin/dectl" dump --ver
    completes "" "$prefix/bin/dectl" dump f
    completes "on off" "$prefix/bin/dectl" cwb ""
fi
if [ $# -eq 0 ]; then
    function=_aisr_check
    # shellcheck source=tools/completion/aisr-check
    . "$prefix/share/bash-completion/completions/aisr-check"
    completes "--quick" "$prefix/bin/aisr-check" --q
    completes "loading.open" "$prefix/bin/aisr-check" --filter loading.op
    touch other.so other.c
    completes "other.so" "$prefix/bin/aisr-check" oth
fi

# The page's own lines, by the compiler of this build.
[ -e "$(find prefix -path '*/displayengine/sample/libAISRProcess_interface.so')" ] ||
    fail "the sample processing library"
cc() { "$cxx" -x c -Wpedantic -Wshadow -Werror "$@"; }
{
    sed -n '/<!-- example: template -->/,/^```$/p' prefix/share/doc/displayengine/processing-library.md |
        sed -e '1,2d;$d' -e "s|^prefix=.*|prefix=$prefix|" -e 's|/aisr-check |&--quick |'
} >steps
grep -q '^cc ' steps || fail "the page has no steps"
if [ $# -ne 0 ]; then
    # It starts processes of its own, which the emulator does not run.
    sed -i '/aisr-check/d' steps
fi
# shellcheck source=/dev/null
. ./steps
[ -s libAISRProcess_interface.so ]
