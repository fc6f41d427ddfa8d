#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds and runs the measurements against floors and peers, and makes one table of what they found.
set -euo pipefail

usage() {
    cat <<'TXT'
Usage: scripts/bench.sh [--write]
  --write  also write bench/RESULTS.md: the tables, and what they were measured on

Prints the tables and leaves them in bench/results/latest.json, and growth.png beside it. A wanted figure that is missed is
marked, and does not fail the run, since a busy machine may be the reason; too many allocations do.
Run it on an otherwise idle machine.
TXT
}

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/lib/packages.sh
. "$root/scripts/lib/packages.sh"

write=
while [ $# -gt 0 ]; do
    case "$1" in
        --write) write=1 ;;
        -h | --help) usage; exit 0 ;;
        *) echo "bench.sh: unknown option $1" >&2; usage >&2; exit 2 ;;
    esac
    shift
done

require_packages "${build_packages[@]}" libbenchmark-dev libsystemd-dev jq gnuplot-nox
cd "$root"

echo "== build: bench"
cmake --preset bench >/dev/null
cmake --build --preset bench -j "$(nproc)"

results=bench/results
mkdir -p "$results"
rm -f "$results"/*.json "$results/tables.md"

describe_machine() {
    cat <<TXT
- processor: $(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1), $(nproc) cores
- kernel: $(uname -sr)
- compiler: $(g++ --version | head -n 1)
- date: $(date +%Y-%m-%d)
TXT
}

failed=()
while read -r program; do
    echo "== $program"
    "build/bench/bench/$program" --json "$results/$program.json" | tee -a "$results/tables.md" ||
        failed+=("$program")
done <build/bench/bench/programs

[ ! -e "$results/GrowthBench.dat" ] ||
    gnuplot -e "samples='$results/GrowthBench.dat'; picture='$results/growth.png'" bench/growth.gnuplot

jq -s --arg machine "$(describe_machine)" '{machine: $machine, tables: .}' \
    "$results"/*Bench.json >"$results/latest.json"
if [ -n "$write" ]; then
    {
        echo "# Measurements"
        echo
        echo "Written by \`scripts/bench.sh --write\`."
        echo
        describe_machine
        echo
        cat -s "$results/tables.md"
    } >bench/RESULTS.md
fi
if grep -q MISSED "$results/tables.md"; then
    echo "A wanted figure was missed; is the machine otherwise idle?"
fi
if [ ${#failed[@]} -gt 0 ]; then
    echo "Failed: ${failed[*]}" >&2
    exit 1
fi
