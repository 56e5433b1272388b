# Draws branch.dat and folds.dat: gnuplot -e "directory='...'" plot.gp
if (!exists("directory")) directory = "."
branch = directory . "/branch.dat"
folds = directory . "/folds.dat"
set grid lc rgb "#dddddd"
stable(x, s) = s == 1 ? x : NaN
unstable(x, s) = s == 0 ? x : NaN
at_fold(x, s) = s == 2 ? x : NaN
do for [format in "svg png"] {
    if (format eq "svg") { set terminal svg size 1000,450 font "Sans,13" background "white" }
    if (format eq "png") { set terminal pngcairo size 1500,675 font "Sans,15" }
    set output directory . "/cusp." . format
    set multiplot layout 1,2
    unset label
    set title "equilibria of x' = c_1 + x - x^3"
    set xlabel "c_1"
    set ylabel "x"
    set key top left
    set autoscale
    set xrange [-1:1]
    plot branch using 1:(stable($2, $3)) with lines lw 3 lc rgb "#1f4e9c" title "stable", \
         branch using 1:(unstable($2, $3)) with lines lw 2 dt 2 lc rgb "#c0392b" title "unstable", \
         branch using 1:(at_fold($2, $3)) with points pt 7 ps 1.2 lc rgb "black" title "fold"
    set title "folds of x' = c_1 + c_2 x - x^3"
    set ylabel "c_2"
    set yrange [-0.2:1.2]
    set xrange [-0.5:0.5]
    set label "three equilibria" at 0, 0.85 center
    set label "one equilibrium" at -0.35, 0.15 center
    set label "cusp" at 0.02, -0.07
    plot folds using 1:2 with linespoints pt 7 ps 0.4 lw 2 lc rgb "#1f4e9c" title "folds, continued", \
         "+" using (2 * ($1 + 0.5)**1.5 / sqrt(27)):($1 + 0.5) with lines lw 1 lc rgb "#888888" title "27 c_1² = 4 c_2³", \
         "+" using (-2 * ($1 + 0.5)**1.5 / sqrt(27)):($1 + 0.5) with lines lw 1 lc rgb "#888888" notitle
    unset multiplot
}
