# Draws curve.dat: gnuplot -e "directory='...'" plot.gp
if (!exists("directory")) directory = "."
set grid lc rgb "#dddddd"
set style fill solid 1.0 noborder
do for [format in "svg png"] {
    if (format eq "svg") { set terminal svg size 640,420 font "Sans,13" background "white" }
    if (format eq "png") { set terminal pngcairo size 960,630 font "Sans,15" }
    set output directory . "/hopf_curve." . format
    unset label
    set title "Hopf bifurcations of the Brusselator"
    set xlabel "A"
    set ylabel "B"
    set key top left
    set xrange [1:1.92]
    set yrange [1:6]
    set label "a stable cycle" at graph 0.2, 0.6 front
    set label "a stable equilibrium" at graph 0.62, 0.2 front
    plot directory . "/curve.dat" using 1:(1 + $1**2):(6) with filledcurves lc rgb "#f3e3dc" notitle, \
         directory . "/curve.dat" using 1:(1 + $1**2) with lines lw 1 lc rgb "#888888" title "B = 1 + A²", \
         directory . "/curve.dat" using 1:2 with points pt 7 ps 0.7 lc rgb "#c0392b" title "tx"
}
