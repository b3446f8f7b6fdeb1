# SPDX-License-Identifier: Apache-2.0
# Draws `results`, a table of tools/bench, into the SVG file `plot`: the tool's time divided by each other contestant's.
set terminal svg size 820,420 font "sans-serif,13" background rgb "white"
set output plot
set datafile separator ","
set datafile missing NaN
set title "Making widgets available: the tool's time, by that of the others (commit " . \
    system("sed -n '2s/,.*//p' " . results) . ")"
set xlabel "widgets"
set ylabel "ratio: median and quartiles of the pairs"
set logscale xy
set xrange [0.7:14000]
set yrange [0.01:2]
set ytics ("0.01" 0.01, "0.02" 0.02, "0.05" 0.05, "0.1" 0.1, "0.2" 0.2, "0.5" 0.5, "as fast" 1)
set format x "%.0f"
set grid xtics ytics linetype 1 linecolor rgb "#dddddd"
set border 3
set tics nomirror
set key outside right center Left reverse samplen 3

contestants = "peer loop"
titles = "'to the stock peer' 'to the shell loop'"
colours = "#d9730d #ad1a72"
# In a line: 2 the file system, 3 the action, 4 the number of widgets, 5 the contestant, 11 to 13 the quartiles.
isPoint(n, disk) = strcol(3) eq "available" && strcol(5) eq word(contestants, n) && (strcol(2) ne "tmpfs") == disk
plot for [disk = 0:1] for [n = 1:2] results using (isPoint(n, disk) ? $4 : NaN):12:11:13 \
    with yerrorlines linewidth 2 dashtype 1 + disk pointtype 7 - disk pointsize 0.6 \
    linecolor rgb word(colours, n) title (word(titles, n) . (disk ? ", disk" : ", tmpfs"))
