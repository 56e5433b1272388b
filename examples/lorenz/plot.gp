# Draws branch.dat: gnuplot -e "directory='...'" plot.gp
if (!exists("directory")) directory = "."
data = directory . "/branch.dat"
set xlabel "ρ"
set ylabel "x"
set title "Lorenz equations, σ = 10, β = 8/3: equilibria"
set key bottom right
set grid lc rgb "#dddddd"
set xrange [0:60]
stable(x, s) = s >= 1 ? x : NaN
unstable(x, s) = s != 1 ? x : NaN
at_hopf(x, s) = s == 2 ? x : NaN
do for [format in "svg png"] {
    if (format eq "svg") { set terminal svg size 800,500 font "Sans,14" background "white" }
    if (format eq "png") { set terminal pngcairo size 1200,750 font "Sans,16" }
    set output directory . "/lorenz." . format
    plot data using 1:(stable($2, $5)) with lines lw 3 lc rgb "#1f4e9c" title "stable", \
         data using 1:(unstable($2, $5)) with lines lw 2 dt 2 lc rgb "#c0392b" title "unstable", \
         data using 1:(at_hopf($2, $5)) with points pt 7 ps 1.2 lc rgb "black" title "Hopf bifurcation"
}
