# SPDX-License-Identifier: Apache-2.0
# Draws the samples of GrowthBench: gnuplot -e "samples='IN.dat'; picture='OUT.png'" growth.gnuplot
set terminal pngcairo size 900,640 font "sans,10"
set output picture
set multiplot layout 3,1
set xrange [0:*]
set yrange [0:*]
set format x "%.0s%c"
set key bottom right
set grid
set ylabel "MiB resident"
plot samples using 1:($3/1024) with lines lw 2 title "client", \
     samples using 1:($6/1024) with lines lw 2 title "service"
set yrange [0:20]
set key top right horizontal
set ylabel "count"
plot samples using 1:4 with lines lw 2 title "client's descriptors", \
     samples using 1:5 with lines lw 2 title "client's threads", \
     samples using 1:7 with lines lw 2 title "service's descriptors", \
     samples using 1:8 with lines lw 2 title "service's threads"
set yrange [0:*]
set key bottom right
set ylabel "us per frame"
set xlabel "frames"
plot samples using 1:2 with lines lw 2 title "median"
unset multiplot
