# Draws branches.dat and attractor.dat: gnuplot -e "directory='...'" plot.gp
if (!exists("directory")) directory = "."
data = directory . "/branches.dat"
set xlabel "c"
set ylabel "y where x = 0"
set title "Rössler equations, a = b = 0.2: cycles of period 1, 2 and 4"
set key top left
set grid lc rgb "#dddddd"
set xrange [2.5:4.4]
set yrange [2.6:5.8]
stable(y, s) = s >= 1 ? y : NaN
unstable(y, s) = s != 1 ? y : NaN
doubling(y, s) = s == 2 ? y : NaN
do for [format in "svg png"] {
    if (format eq "svg") { set terminal svg size 800,500 font "Sans,14" background "white" }
    if (format eq "png") { set terminal pngcairo size 1200,750 font "Sans,16" }
    set output directory . "/roessler." . format
    plot directory . "/attractor.dat" with points pt 7 ps 0.2 lc rgb "#aaaaaa" title "attractor", \
         for [k = 0:2] for [turn = 1:2 ** k] data index k using 1:(stable(column(turn + 2), $2)) \
             with lines lw 3 lc rgb "#1f4e9c" title (k + turn == 1 ? "stable cycles" : ""), \
         for [k = 0:2] for [turn = 1:2 ** k] data index k using 1:(unstable(column(turn + 2), $2)) \
             with lines lw 2 dt 2 lc rgb "#c0392b" title (k + turn == 1 ? "unstable cycles" : ""), \
         for [k = 0:2] for [turn = 1:2 ** k] data index k using 1:(doubling(column(turn + 2), $2)) \
             with points pt 7 ps 1.2 lc rgb "black" title (k + turn == 1 ? "period doubling" : "")
}
