#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the fuzzers and lets them search for inputs that break a rule, or replays their corpora.
set -euo pipefail

usage() {
    cat <<TXT
Usage: scripts/fuzz.sh [SECONDS] [--target NAME]
       scripts/fuzz.sh --replay [--target NAME]
  SECONDS        how long each fuzzer searches, 60 by default; as many run at a time as there are
                 processors
  --replay       run the inputs of fuzz/corpus and nothing else
  --target NAME  only the fuzzers whose name contains NAME
Inputs that are new are kept in build/fuzz/corpus, what was found in build/fuzz/findings.
TXT
}

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/lib/packages.sh
. "$root/scripts/lib/packages.sh"

seconds=60
replay=false
target=
while [ $# -gt 0 ]; do
    case "$1" in
        --replay) replay=true ;;
        --target)
            [ $# -ge 2 ] || { echo "fuzz.sh: $1 takes a value" >&2; exit 2; }
            target=$2
            shift
            ;;
        -h | --help) usage; exit 0 ;;
        *[!0-9]* | '' | 0*) echo "fuzz.sh: unknown option $1" >&2; usage >&2; exit 2 ;;
        *) seconds=$1 ;;
    esac
    shift
done

require_packages "${build_packages[@]}" clang libclang-rt-14-dev libgtest-dev
cd "$root"

names=()
for source in fuzz/*Fuzzer.cpp; do
    name=$(basename "$source" .cpp)
    [[ $name != *"$target"* ]] || names+=("$name")
done
[ ${#names[@]} -gt 0 ] || { echo "fuzz.sh: no fuzzer is called $target" >&2; exit 2; }

jobs=$(nproc)
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j "$jobs" --target "${names[@]}"

if $replay; then
    exec ctest --preset fuzz -j "$jobs" --tests-regex "^($(IFS='|'; echo "${names[*]}"))\$"
fi

# search NAME: one fuzzer's run; its log is shown only when it has found something.
search() {
    local name=$1 work=build/fuzz/corpus/$1 found=build/fuzz/findings/$1
    mkdir -p "$work" "$found"
    if "build/fuzz/fuzz/$name" -max_total_time="$seconds" -timeout=20 -malloc_limit_mb=64 \
        -print_final_stats=1 -artifact_prefix="$found/" "$work" "fuzz/corpus/$name" \
        >"$found/log" 2>&1; then
        echo "$name: nothing, in $(awk '/number_of_executed_units/ { print $2 }' "$found/log") runs"
        return
    fi
    cat "$found/log"
    echo "$name has found something. Reproduce it with:"
    for input in "$found"/*-*; do
        [ ! -e "$input" ] || echo "  build/fuzz/fuzz/$name $input"
    done
    return 1
}

rounds=$(((${#names[@]} + jobs - 1) / jobs))
echo "== ${#names[@]} fuzzers, $jobs at a time, $seconds s each: about $((rounds * seconds)) s"
status=0
running=0
for name in "${names[@]}"; do
    if [ "$running" -ge "$jobs" ]; then
        wait -n || status=1
        running=$((running - 1))
    fi
    search "$name" &
    running=$((running + 1))
done
while [ "$running" -gt 0 ]; do
    wait -n || status=1
    running=$((running - 1))
done
exit "$status"
