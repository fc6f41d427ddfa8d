#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds everything and runs the tests. Without options: the format check, the optimised build with
# g++ and its tests, and a build with clang++ for its warnings.
set -euo pipefail

usage() {
    cat <<TXT
Usage: scripts/test.sh [--no-clang | --asan | --tsan | --libcxx | --arm64] [--stress]
                       [--repeat N] [--filter REGEX]
  --no-clang      leave out the build with clang++
  --asan          build with the address and undefined-behaviour sanitizers
  --tsan          build with the thread sanitizer
  --libcxx        build with clang++ and libc++, the device's C++ runtime
  --arm64         build for 64-bit Arm, without the player, and run under the emulator
  --stress        run the stress tests, which are left out otherwise, and nothing else
  --repeat N      run the tests N times, and stop at the first failure
  --filter REGEX  run only the tests whose name matches
TXT
}

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/lib/packages.sh
. "$root/scripts/lib/packages.sh"

preset=release
with_clang=true
ctest_options=()
stress=--label-exclude
while [ $# -gt 0 ]; do
    case "$1" in
        --no-clang) with_clang=false ;;
        --asan | --tsan | --libcxx | --arm64) preset=${1#--} ;;
        --stress) stress=--label-regex ;;
        --repeat | --filter)
            [ $# -ge 2 ] || { echo "test.sh: $1 takes a value" >&2; exit 2; }
            case "$1" in
                --repeat) ctest_options+=(--repeat "until-fail:$2") ;;
                --filter) ctest_options+=(--tests-regex "$2") ;;
            esac
            shift
            ;;
        -h | --help) usage; exit 0 ;;
        *) echo "test.sh: unknown option $1" >&2; usage >&2; exit 2 ;;
    esac
    shift
done

# GoogleTest comes as sources where the distribution's build of it does not fit.
case "$preset" in
    libcxx) test_packages=(clang libc++-dev libc++abi-dev googletest gnuplot-nox) ;;
    arm64) test_packages=(g++-aarch64-linux-gnu qemu-user googletest) ;;
    *) test_packages=(clang libclang-rt-14-dev llvm clang-format libgtest-dev gnuplot-nox) ;;
esac
# "llvm" names the places in a sanitizer's report; "locales" is for a test that makes a locale of its own.
require_packages "${build_packages[@]}" "${test_packages[@]}" locales
cd "$root"

jobs=$(nproc)
build() {
    cmake --preset "$1" >/dev/null
    cmake --build --preset "$1" -j "$jobs"
}

if [ "$preset" = release ] && [ "$stress" = --label-exclude ]; then
    echo "== format"
    git ls-files -z -- '*.h' '*.cpp' | xargs -0 clang-format --dry-run --Werror
    if $with_clang; then
        echo "== build with clang++"
        build debug
    fi
fi
echo "== build: $preset"
build "$preset"
echo "== tests: $preset"
ctest --preset "$preset" -j "$jobs" "$stress" '^stress$' "${ctest_options[@]}"
