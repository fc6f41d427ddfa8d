#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Usage: InstalledPackage.sh cmake|pkg-config BUILD_DIR CONSUMER_DIR CMAKE CXX CXX_FLAGS [EMULATOR...]
# Installs the build into a folder of its own and builds and runs the consumer against it, with
# nothing of the source tree or the build tree in reach.
set -euo pipefail
way=$1 build=$2 consumer=$3 cmake=$4 cxx=$5 flags=$6
shift 6

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -r "$consumer" "$work/consumer"
cp "$build"/tests/readme/{media_client,media_session,service}.cpp "$work/consumer"
cd "$work"

# Moved after the installation: nothing in the tree may know where it was.
"$cmake" --install "$build" --prefix "$work/staged" >/dev/null
mv staged prefix
package=$(dirname "$(find prefix -name displayengine.pc)")/..
if grep -rF -e "$work" -e "$build" -e "$(dirname "$(dirname "$consumer")")/" \
    "$package"/{cmake,pkgconfig}; then
    echo "The package refers to folders of the build" >&2
    exit 1
fi

# The public headers need none of the others, nor the order they are included in here.
(cd prefix/include/displayengine && find . -name '*.h' | sort -r |
    sed 's|^\./\(.*\)|#include "\1"|') >consumer/every_header.cpp
[ "$(wc -l <consumer/every_header.cpp)" -ge 10 ]

# The one for makers of processing libraries is C as well, on its own.
echo '#include "common/AisrProcess.h"' | "${CC:-cc}" -x c -std=c11 -Wall -Wextra -Wpedantic -Werror \
    -fsyntax-only -Iprefix/include/displayengine -

case $way in
    cmake)
        "$cmake" -S consumer -B out -DCMAKE_PREFIX_PATH="$work/prefix" \
            -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_FLAGS="$flags" >/dev/null
        "$cmake" --build out
        ;;
    pkg-config)
        mkdir out
        export PKG_CONFIG_PATH=$package/pkgconfig
        libs=$(cd "$package" && pwd)
        # The flags are lists.
        # shellcheck disable=SC2046,SC2086
        "$cxx" -std=c++17 $flags consumer/*.cpp $(pkg-config --cflags --libs displayengine-media) \
            "-Wl,-rpath,$libs" -o out/consumer
        ;;
esac
mkdir -m 700 run
DISPLAYENGINE_RUNTIME_DIR=$work/run "$@" out/consumer
