# SPDX-License-Identifier: Apache-2.0
# Draws the time of each enhancement call beside the engine's limits:
#   gnuplot -c latency.gnuplot FRAMES.CSV PICTURE.PNG ABORT_MS OVERLOAD_MS
csv = ARG1
abortMs = ARG3 + 0
overloadMs = ARG4 + 0
array keys[4] = ["enhanced", "failed", "expired", "refused"]
array titles[4] = ["enhanced", "failed in the processing library", "expired", "refused"]
array colours[4] = ["#2a7f3f", "#8a2be2", "#c0392b", "#555555"]
isOf(i) = strcol(3)[1:strlen(keys[i])] eq keys[i]

set datafile separator ","
# Only what occurs gets a place in the key.
occurring = ""
do for [i = 1:4] {
    stats csv skip 1 using (isOf(i)) nooutput
    if (STATS_sum > 0) { occurring = occurring . " " . i }
}
stats csv skip 1 using 2 nooutput
seconds = STATS_max > 0 ? STATS_max : 1
stats csv skip 1 using 4 nooutput
top = STATS_max > abortMs ? STATS_max : abortMs

set terminal pngcairo size 1100,500
set output ARG2
set key tmargin center horizontal
set title "Time of the enhancement call, frame by frame"
set xlabel "seconds"
set ylabel "milliseconds"
set xrange [0:seconds]
# A little room below, where the refused frames are.
set yrange [-0.03 * top:1.1 * top]
set grid ytics
plot for [i in occurring] csv skip 1 using 2:(isOf(int(i)) ? $4 : NaN) \
         with points pt 7 ps 0.5 lc rgb colours[int(i)] title titles[int(i)], \
     abortMs with lines lw 2 lc rgb "#c0392b" title "abort limit " . ARG3 . " ms", \
     overloadMs with lines lw 2 lc rgb "#e08e0b" title "overload limit " . ARG4 . " ms"
