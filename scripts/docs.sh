#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Makes the reference from the headers and the pages of docs/. A warning is a failure.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/lib/packages.sh
. "$root/scripts/lib/packages.sh"

case ${1-} in
    '') ;;
    -h | --help) echo "Usage: scripts/docs.sh    (the reference is build/docs/html/index.html)"; exit 0 ;;
    *) echo "docs.sh: unknown option $1 (there is only --help)" >&2; exit 2 ;;
esac

require_packages doxygen graphviz
cd "$root"
rm -rf build/docs
mkdir -p build/docs
doxygen docs/Doxyfile
echo "The reference is $root/build/docs/html/index.html"
