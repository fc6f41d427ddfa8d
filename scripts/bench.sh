#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds and runs the measurements beside floors and peers, and makes tables of what they found.
set -euo pipefail

usage() {
    cat <<'TXT'
Usage: scripts/bench.sh [--write] [PROGRAM...]
  --write  also write bench/RESULTS.md, bench/STAND-IN.md and docs/images/growth.png
  PROGRAM  run only these, for example FrameBench; the tables take the last results of the others

Prints the tables and leaves them in bench/results, beside what each program measured. A wanted
ratio that is missed is marked, and does not fail the run, since a busy machine may be the reason;
too many allocations and growth do. Run it on an otherwise idle machine: about 4 minutes.
TXT
}

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/lib/packages.sh
. "$root/scripts/lib/packages.sh"

write=
programs=()
while [ $# -gt 0 ]; do
    case "$1" in
        --write) write=1 ;;
        -h | --help) usage; exit 0 ;;
        -*) echo "bench.sh: unknown option $1" >&2; usage >&2; exit 2 ;;
        *) programs+=("$1") ;;
    esac
    shift
done

require_packages "${build_packages[@]}" libbenchmark-dev libsystemd-dev python3 gnuplot-nox
cd "$root"

results=$root/bench/results
mkdir -p "$results"
if [ ${#programs[@]} -eq 0 ]; then
    for source in bench/*Bench.cpp; do
        programs+=("$(basename "$source" .cpp)")
    done
    rm -f "$results"/*
fi

echo "== build: bench"
cmake --preset bench >/dev/null
cmake --build --preset bench -j "$(nproc)" --target "${programs[@]}"

# The repetitions of all benchmarks of a program come in random order, so that whatever else the
# machine does meets a figure and its floor alike.
for program in "${programs[@]}"; do
    echo "== $program"
    (cd "$results" && "$root/build/bench/bench/$program" --benchmark_out="$program.json" \
        --benchmark_enable_random_interleaving=true --benchmark_repetitions=15 \
        --benchmark_min_time=0.05 >"$program.txt" 2>&1) || { cat "$results/$program.txt" >&2; exit 1; }
done

status=0
python3 bench/tables.py "$results" || status=1
cat "$results/library.md" "$results/stand-in.md"
gnuplot -e "samples='$results/growth.dat'; picture='$results/growth.png'" bench/growth.gnuplot

# page TITLE TABLES: a page with the tables and what they were measured on.
page() {
    cat <<TXT
# $1

Written by \`scripts/bench.sh --write\`.

- processor: $(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1), $(nproc) cores
- kernel: $(uname -sr)
- compiler: $(g++ --version | head -n 1)
- date: $(date +%Y-%m-%d)

$(cat "$2")
TXT
}
if [ -n "$write" ]; then
    page "Measurements" "$results/library.md" >bench/RESULTS.md
    page "Measurements of the platform stand-in" "$results/stand-in.md" >bench/STAND-IN.md
    cp "$results/growth.png" docs/images/growth.png
fi
if grep -q MISSED "$results"/*.md; then
    echo "A wanted ratio was missed; is the machine otherwise idle?"
fi
exit "$status"
