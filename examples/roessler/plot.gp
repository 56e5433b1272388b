# Draws branches.dat, attractor.dat and doublings.dat: gnuplot -e "directory='...'" plot.gp
if (!exists("directory")) directory = "."
data = directory . "/branches.dat"
doublings = directory . "/doublings.dat"
set xlabel "c"
set key top left
set grid lc rgb "#dddddd"
stable(y, s) = s >= 1 ? y : NaN
unstable(y, s) = s != 1 ? y : NaN
doubling(y, s) = s == 2 ? y : NaN
uncovered(c) = c > 4.12 ? c : NaN  # up to there the attractor lies under the stable cycles
do for [format in "svg png"] {
    if (format eq "svg") { set terminal svg size 1200,500 font "Sans,14" background "white" }
    if (format eq "png") { set terminal pngcairo size 1680,700 font "Sans,15" }
    set output directory . "/roessler." . format
    set multiplot
    unset label
    unset arrow
    set origin 0, 0
    set size 0.58, 1
    set title "Rössler equations, a = b = 0.2: cycles of period 1, 2 and 4"
    set ylabel "y where x = 0"
    set xrange [2.5:4.4]
    set yrange [2.6:5.8]
    plot directory . "/attractor.dat" using (uncovered($1)):2 with points pt 7 ps 0.2 lc rgb "#aaaaaa" notitle, \
         NaN with points pt 7 ps 1 lc rgb "#aaaaaa" title "attractor", \
         for [k = 0:2] for [turn = 1:2 ** k] data index k using 1:(stable(column(turn + 2), $2)) \
             with lines lw 3 lc rgb "#1f4e9c" title (k + turn == 1 ? "stable cycles" : ""), \
         for [k = 0:2] for [turn = 1:2 ** k] data index k using 1:(unstable(column(turn + 2), $2)) \
             with lines lw 2 dt 2 lc rgb "#c0392b" title (k + turn == 1 ? "unstable cycles" : ""), \
         for [k = 0:2] for [turn = 1:2 ** k] data index k using 1:(doubling(column(turn + 2), $2)) \
             with points pt 7 ps 1.2 lc rgb "black" title (k + turn == 1 ? "period doubling" : "")
    set origin 0.58, 0
    set size 0.42, 1
    set title "period doublings for b = 0.2"
    set ylabel "a"
    set xrange [2.3:5.2]
    set yrange [0.12:0.25]
    set label "period 1" at 2.5, 0.15
    set label "period 2" at 3.4, 0.19
    set arrow from 2.3, 0.2 to 5.2, 0.2 nohead dt 3 lc rgb "#888888"
    plot doublings index 0 using 1:2 with lines lw 2 lc rgb "#1f4e9c" title "1 to 2", \
         doublings index 1 using 1:2 with lines lw 2 lc rgb "#1f8c4e" title "2 to 4", \
         for [k = 0:1] data index k using 1:(doubling(0.2, $2)) \
             with points pt 7 ps 1.2 lc rgb "black" notitle
    unset multiplot
}
