#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Checks the libraries' folders with clang-tidy.
set -euo pipefail

usage() {
    cat <<'TXT'
Usage: scripts/tidy.sh

Prints what clang-tidy finds in common/, aidl/, aisr/, client/, gstreamer/ and media/, and fails when there is anything.
The checks are those of .clang-tidy, which says why others are left out.
TXT
}

case "${1-}" in
    "") ;;
    -h | --help) usage; exit 0 ;;
    *) echo "tidy.sh: unknown option $1" >&2; usage >&2; exit 2 ;;
esac

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/lib/packages.sh
. "$root/scripts/lib/packages.sh"
require_packages "${build_packages[@]}" clang clang-tidy libgtest-dev
cd "$root"

# The sources need no build, only its commands.
cmake --preset debug >/dev/null
run-clang-tidy -quiet -j "$(nproc)" -p build/debug \
    "^$root/(common|aidl|aisr|client|gstreamer|media)/[^/]*\.cpp\$" 2>&1 |
    sed -E -e 's/\x1b\[[0-9;]*m//g' -e '/^clang-tidy|^[0-9]+ warnings? (generated|treated)/d'
