# SPDX-License-Identifier: Apache-2.0
# Draws `results`, a table of tools/bench, into the SVG file `plot`: the time to make widgets available.
set terminal svg size 820,480 font "sans-serif,13" background rgb "white"
set output plot
set datafile separator ","
set datafile missing NaN
set title "Making widgets available"
set xlabel "widgets"
set ylabel "milliseconds, median of the runs"
set logscale xy
set xrange [7:150000]
set format "%.0f"
set grid xtics ytics linetype 1 linecolor rgb "#dddddd"
set border 3
set tics nomirror
set key outside right center Left reverse samplen 3

contestants = "loop peer tool floor"
titles = "'shell loop' 'stock peer' tool floor"
colours = "#ad1a72 #d9730d #0b6e99 #888888"
# Of a line of the table: 1 the file system, 2 the action, 3 the number of widgets, 4 the contestant, 7 the median time.
isPoint(n, disk) = strcol(2) eq "available" && strcol(4) eq word(contestants, n) && (strcol(1) ne "tmpfs") == disk
plot for [disk = 1:0:-1] for [n = 1:4] results using (isPoint(n, disk) ? $3 : NaN):7 \
    with linespoints linewidth 2 dashtype 1 + disk pointtype 7 - disk pointsize 0.6 \
    linecolor rgb word(colours, n) title (word(titles, n) . (disk ? ", disk" : ", tmpfs"))
