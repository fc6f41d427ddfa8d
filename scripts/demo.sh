#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Shows the video path at work: installs what is missing, builds, starts the sample service, plays a
# video through it for a while, and says where the pictures are.
set -euo pipefail

usage() {
    cat <<'TEXT'
Usage: scripts/demo.sh [VIDEO] [options]

Plays VIDEO through the display engine and a service of its own, which switches enhancement off and
on again in the middle. Without VIDEO it plays real footage of 768 x 576, fetched once.

  --fps N|max     pace of the frames; the video's own if not given. From 39 on the engine's health
                  monitor refuses the stream after a while
  --library DIR   folder of the processing library, libAISRProcess_interface.so; the sample's if not
                  given
  --slow-ms N     make the sample's processing library take at least N milliseconds for a frame: from
                  33 on the overload latch sets, from 40 on frames expire
  --seconds N     length of the run (10)
  --output DIR    folder for the pictures, the frames' table and the service's log (out, in the
                  project's folder)
  --verbose       show the engine's log
  --help          this text

Exit code: 0 done; 1 failed, or the video cannot be played; 2 wrong usage.
TEXT
}

fail() {
    echo "demo.sh: $1" >&2
    exit "${2:-1}"
}

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/lib/packages.sh
. "$root/scripts/lib/packages.sh"

library_name=libAISRProcess_interface.so
cache=${XDG_CACHE_HOME:-${HOME:-/tmp}/.cache}/displayengine
video=
output=$root/out
seconds=10
library=
slow_ms=
player_options=(--loop)

is_number() { [[ $1 =~ ^([0-9]+(\.[0-9]*)?|\.[0-9]+)$ && ! $1 =~ ^[0.]*$ ]]; }

parse_options() {
    while (($#)); do
        case $1 in
            -h | --help) usage; exit 0 ;;
            -v | --verbose) player_options+=(--verbose) ;;
            --*=*) set -- "${1%%=*}" "${1#*=}" "${@:2}"; continue ;;
            --fps | --library | --slow-ms | --seconds | --output | -o)
                (($# > 1)) || fail "$1 needs a value (--help lists the options)" 2
                case $1 in
                    --fps)
                        [[ $2 == max ]] || is_number "$2" ||
                            fail "--fps $2 is neither max nor a rate" 2
                        player_options+=(--fps "$2") ;;
                    --library) library=$2 ;;
                    --slow-ms) slow_ms=$2 ;;
                    --seconds) seconds=$2 ;;
                    *) output=$2 ;;
                esac
                shift ;;
            -?*) fail "unknown option $1 (--help lists the options)" 2 ;;
            *)
                [[ -z $video ]] || fail "more than one video: $video and $1" 2
                [[ -n $1 ]] || fail "the name of the video is empty" 2
                video=$1 ;;
        esac
        shift
    done
    is_number "$seconds" || fail "--seconds $seconds is not a time in seconds" 2
    [[ -z $slow_ms || $slow_ms =~ ^[0-9]{1,7}$ ]] ||
        fail "--slow-ms $slow_ms is not a time in milliseconds" 2
    [[ -z $library || -z $slow_ms ]] ||
        fail "--slow-ms is for the sample's processing library, not for the one in $library" 2
    [[ -z $library || -r $library/$library_name ]] || fail "there is no $library_name in $library"
    [[ -z $video || -r $video ]] || fail "cannot read the video $video"
}

# The video ---------------------------------------------------------------------------------------

apt_get() { apt-get -qq -o APT::Sandbox::User=root "$@" >/dev/null; }

# Takes vtest.avi out of Debian's package with the examples of OpenCV, without installing it.
fetch_footage() {
    local work=$1 name
    echo "Fetching vtest.avi out of Debian's package opencv-doc (96 MB, once) ..."
    (cd "$work" && apt_get download opencv-doc 2>/dev/null) ||
        { [[ $(id -u) -eq 0 ]] && apt_get update && (cd "$work" && apt_get download opencv-doc); } ||
        return 1
    name=$(dpkg-deb --fsys-tarfile "$work"/opencv-doc_*.deb | tar -t |
        grep -E '/vtest\.avi(\.gz)?$') || return 1
    dpkg-deb --fsys-tarfile "$work"/opencv-doc_*.deb | tar -x -O "$name" >"$work/footage" || return 1
    if [[ $name == *.gz ]]; then
        gzip -dc <"$work/footage" >"$work/vtest.avi"
    else
        mv "$work/footage" "$work/vtest.avi"
    fi
}

make_clip() {
    echo "The footage cannot be fetched; making a clip with GStreamer instead."
    gst-launch-1.0 -q videotestsrc pattern=zone-plate kx2=30 ky2=30 kt=2 num-buffers=300 ! \
        video/x-raw,width=640,height=360,framerate=30/1 ! videoscale ! \
        video/x-raw,width=1280,height=720 ! jpegenc ! avimux ! \
        filesink location="$1/clip.avi" || fail "GStreamer cannot make a clip"
}

# Sets `video` to a file in the cache folder, which it fills first if need be.
choose_video() {
    mkdir -p "$cache" 2>/dev/null || fail "cannot make the cache folder $cache"
    video=$cache/vtest.avi
    [[ ! -s $video ]] || return 0
    fetch_dir=$(mktemp -d "$cache/fetch.XXXXXX")
    if fetch_footage "$fetch_dir"; then
        mv "$fetch_dir/vtest.avi" "$video"
    else
        video=$cache/clip.avi
        [[ -s $video ]] || { make_clip "$fetch_dir" && mv "$fetch_dir/clip.avi" "$video"; }
        echo "Playing the generated clip $video."
    fi
    rm -rf "$fetch_dir"
}

# Build and run -----------------------------------------------------------------------------------

build() {
    local log=$root/build/demo-build.log
    echo "Building ..."
    mkdir -p "$root/build" 2>/dev/null || true
    [[ -w $root/build ]] || fail "cannot write to $root/build"
    (cd "$root" && cmake --preset release && cmake --build --preset release \
        --target displayengine-service displayengine-player aisr_process_sample) >"$log" 2>&1 ||
        { tail -n 30 "$log" >&2; fail "the build failed, see $log"; }
}

service_pid=
player_pid=
runtime_dir=
fetch_dir=

# Ends one process of ours, if it still runs.
stop_process() {
    [[ -n $1 ]] || return 0
    kill -TERM "$1" 2>/dev/null || true
    wait "$1" 2>/dev/null || true
}

cleanup() {
    stop_process "$player_pid"
    stop_process "$service_pid"
    [[ -z $runtime_dir ]] || rm -rf "$runtime_dir"
    [[ -z $fetch_dir ]] || rm -rf "$fetch_dir"
}

# The times are a fifth before and after the middle of the run.
start_service() {
    local off on log=$output/service.log
    off=$(awk -v s="$seconds" 'BEGIN { printf "%.3f", s * 0.4 }')
    on=$(awk -v s="$seconds" 'BEGIN { printf "%.3f", s * 0.6 }')
    : >"$log" # there before the service has been started
    "$binaries/service/displayengine-service" --toggle "$off:off" --toggle "$on:on" \
        </dev/null >"$log" 2>&1 &
    service_pid=$!
    for ((i = 0; i < 200; ++i)); do
        ! grep -qx ready "$log" || return 0
        kill -0 "$service_pid" 2>/dev/null || break
        sleep 0.05
    done
    fail "the service did not start: $(tail -n 1 "$log")"
}

run_player() {
    local whose=${library:+yours}
    library=$(cd "${library:-$binaries/processing}" && pwd)
    echo "Processing library: $library/$library_name (${whose:-the sample})"
    [[ -z $slow_ms ]] || export AISR_SAMPLE_SLOW_MS=$slow_ms
    LD_LIBRARY_PATH=$library${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH} \
        "$binaries/player/displayengine-player" "$video" --seconds "$seconds" --output "$output" \
        "${player_options[@]}" &
    player_pid=$!
    local status=0
    # Silences the shell's own message when the service is killed meanwhile.
    wait "$player_pid" 2>/dev/null || status=$?
    player_pid=
    return "$status"
}

main() {
    parse_options "$@"
    trap cleanup EXIT
    trap 'exit 130' INT
    trap 'exit 143' TERM HUP
    require_packages "${build_packages[@]}" libgtest-dev gnuplot-nox
    mkdir -p "$output" 2>/dev/null || fail "cannot make the folder $output"
    output=$(cd "$output" && pwd)
    [[ -n $video ]] || choose_video
    build
    binaries=$root/build/release/demo
    runtime_dir=$(mktemp -d "${TMPDIR:-/tmp}/displayengine-demo.XXXXXX")
    export DISPLAYENGINE_RUNTIME_DIR=$runtime_dir

    start_service
    local status=0
    run_player || status=$?
    if ! kill -0 "$service_pid" 2>/dev/null; then
        echo "The service ended during the run; the player went on without it."
    fi
    # What kills a player that nobody stopped is as a rule the library in its process.
    if ((status > 128 && status != 130 && status != 143)); then
        echo "The player was killed by signal $((status - 128))."
        echo "aisr-check $library/$library_name tells what is wrong with it"
    fi
    ((status == 0)) || exit "$status" # the player has said why
    echo "The pictures are in $output (service.log there lists the service's calls and events)."
}

main "$@"
