#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Usage: InstalledPipeline.sh PAGE BUILD_DIR CMAKE
# Installs the build into a folder of its own and runs the pipeline that PAGE shows after the line
# "<!-- pipeline: file -->": the frames that it writes differ from the input's exactly where they
# were enhanced.
set -euo pipefail
page=$1 build=$2 cmake=$3

frames=25 width=640 height=520
frame_bytes=$((width * height * 3 / 2))
work=$(mktemp -d)
service=
trap '[ -z "$service" ] || kill "$service"; rm -rf "$work"' EXIT
cd "$work"
"$cmake" --install "$build" --prefix "$work/staged" >/dev/null
mv staged prefix
line=$(sed -n '/^<!-- pipeline: file -->$/,/^```$/p' "$page" | sed '1,2d;$d' |
    sed "s|PREFIX|$work/prefix|g")
[ -n "$line" ] || { echo "$page has no such pipeline" >&2; exit 1; }

export GST_REGISTRY=$build/gstreamer/installed-registry.bin DISPLAYENGINE_RUNTIME_DIR=$work/run
mkdir -m 700 run
mkfifo service-says
exec 3<>service-says
"$build/demo/service/displayengine-service" --abort-ms 60000 --overload-ms 60000 >&3 &
service=$!
read -r said <&3
[ "$said" = ready ]
gst-launch-1.0 -q videotestsrc pattern=pinwheel num-buffers=$frames ! \
    "video/x-raw,format=NV12,width=$width,height=$height,framerate=25/1" ! videoconvert ! \
    avenc_ffv1 ! matroskamux ! filesink location=in.mkv
LD_LIBRARY_PATH=$build/demo/processing GST_DEBUG=displayenhance:6 GST_DEBUG_NO_COLOR=1 \
    bash -c "$line" 2>log >/dev/null || { cat log >&2; exit 1; }

for video in in out; do
    gst-launch-1.0 -q filesrc location=$video.mkv ! decodebin ! videoconvert ! \
        video/x-raw,format=NV12 ! filesink location=$video.raw
    [ "$(stat -c %s $video.raw)" -eq $((frames * frame_bytes)) ]
    split -b $frame_bytes -d $video.raw $video.
done
grep -oE '<displayenhance0> [a-z-]+ after' log | cut -d' ' -f2 >outcomes
[ "$(wc -l <outcomes)" -eq $frames ]
grep -qx processed outcomes
frame=0
while read -r outcome; do
    name=$(printf '%02d' $frame)
    cmp -s "in.$name" "out.$name" && changed=no || changed=yes
    [ "$outcome" = processed ] && wanted=yes || wanted=no
    [ "$changed" = "$wanted" ] || { echo "frame $frame: $outcome, changed: $changed" >&2; exit 1; }
    frame=$((frame + 1))
done <outcomes
