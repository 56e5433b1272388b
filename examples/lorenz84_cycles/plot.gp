# Draws branches.csv and points.csv: gnuplot -e "directory='...'" plot.gp
if (!exists("directory")) directory = "."
branches = directory . "/branches.csv"
points = directory . "/points.csv"
set datafile separator comma
set grid lc rgb "#dddddd"
rest(x) = column("cycle") == 0 ? x : NaN
runs(x) = column("cycle") == 1 ? x : NaN
stable(x) = column("stable") == 1 ? x : NaN
do for [format in "svg png"] {
    if (format eq "svg") { set terminal svg size 700,460 font "Sans,13" background "white" }
    if (format eq "png") { set terminal pngcairo size 1050,690 font "Sans,15" }
    set output directory . "/lorenz84_cycles." . format
    set title "Lorenz-84: cycles and tori, T = 0.01"
    set xlabel "F"
    set ylabel "X"
    set key outside bottom center horizontal
    plot for [k = 0:0] branches index k using 1:(rest(stable($2))) with lines lw 3 lc rgb "black" title "equilibrium, stable", \
         branches index 0 using 1:(rest($2)) with lines lw 2 dt 2 lc rgb "black" title "unstable", \
         for [k = 0:9] branches index k using 1:(runs(stable($2))) with lines lw 3 lc rgb "#1f4e9c" notitle, \
         for [k = 0:9] branches index k using 1:(runs(stable($3))) with lines lw 3 lc rgb "#1f4e9c" title (k == 1 ? "cycle: minimum, maximum, stable" : ""), \
         for [k = 0:9] branches index k using 1:(runs($2)) with lines lw 1.5 dt 2 lc rgb "#1f4e9c" notitle, \
         for [k = 0:9] branches index k using 1:(runs($3)) with lines lw 1.5 dt 2 lc rgb "#1f4e9c" title (k == 1 ? "unstable" : "")
}
