#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Usage: ExportedSymbols.sh NM LIBRARY LIST
# Compares the dynamic symbols that LIBRARY defines with LIST: demangled, sorted, one a line.
set -euo pipefail
export LC_ALL=C

# A constructor or destructor has several symbols of one name.
actual=$("$1" -D --defined-only -C "$2" | sed 's/^[0-9a-f]* . //' | sort -u)
if ! difference=$(diff "$3" - <<<"$actual"); then
    echo "The exported symbols differ from $3 (< only in the list, > only in the library):"
    grep '^[<>]' <<<"$difference"
    exit 1
fi
echo "$(wc -l <"$3") symbols"
