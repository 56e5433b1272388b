# Draws branches.csv and points.csv: gnuplot -e "directory='...'" plot.gp
if (!exists("directory")) directory = "."
branches = directory . "/branches.csv"
points = directory . "/points.csv"
set datafile separator comma
set grid lc rgb "#dddddd"
stable(x) = column("stable") == 1 ? x : NaN
is(type, x) = strcol(2) eq type ? x : NaN
do for [format in "svg png"] {
    if (format eq "svg") { set terminal svg size 1000,420 font "Sans,13" background "white" }
    if (format eq "png") { set terminal pngcairo size 1500,630 font "Sans,15" }
    set output directory . "/fitzhugh_nagumo." . format
    set multiplot layout 1,2
    set title "FitzHugh–Nagumo equations: equilibria"
    set xlabel "I"
    set ylabel "v"
    set key top left
    set xrange [0:2]
    plot branches index 0 using "I":"v" with lines lw 2 dt 2 lc rgb "black" title "unstable", \
         branches index 0 using "I":(stable(column("v"))) with lines lw 3 lc rgb "black" title "stable", \
         points using 4:($5 == 0.08 ? is("H", $8) : NaN) with points pt 6 ps 1.4 lw 2 lc rgb "#c0392b" title "Hopf, subcritical"
    set title "where the equilibrium is unstable"
    set ylabel "ε"
    unset key
    set style fill solid 1.0 noborder
    plot branches index 2 using "I":"eps" with filledcurves closed lc rgb "#f3e3dc" notitle, \
         branches index 2 using "I":"eps" with lines lw 2 lc rgb "#c0392b", \
         points using 4:(strcol(1) eq "GH1" ? $5 : NaN):1 with labels offset -3,0, \
         points using 4:(strcol(1) eq "GH2" ? $5 : NaN):1 with labels offset 3,0, \
         points using 4:(is("GH", $5)) with points pt 7 ps 1 lc rgb "black"
    unset multiplot
}
