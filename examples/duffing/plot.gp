# Draws response.dat and folds.dat: gnuplot -e "directory='...'" plot.gp
if (!exists("directory")) directory = "."
response = directory . "/response.dat"
folds = directory . "/folds.dat"
set xlabel "ω"
set grid lc rgb "#dddddd"
stable(x, s) = s >= 1 ? x : NaN
unstable(x, s) = s != 1 ? x : NaN
at_fold(x, s) = s == 2 ? x : NaN
do for [format in "svg png"] {
    if (format eq "svg") { set terminal svg size 1000,450 font "Sans,13" background "white" }
    if (format eq "png") { set terminal pngcairo size 1500,675 font "Sans,15" }
    set output directory . "/duffing." . format
    set multiplot layout 1,2
    unset label
    unset arrow
    set title "x″ + 0.2 x′ + x + x³ = 0.5 cos ωt: response"
    set ylabel "largest |x|"
    set key top right
    set xrange [0.5:2.5]
    set yrange [0:*]
    plot response using 1:(stable($2, $3)) with lines lw 3 lc rgb "#1f4e9c" title "stable", \
         response using 1:(unstable($2, $3)) with lines lw 2 dt 2 lc rgb "#c0392b" title "unstable", \
         response using 1:(at_fold($2, $3)) with points pt 7 ps 1.2 lc rgb "black" title "fold"
    set title "its folds, whatever the force"
    set ylabel "force"
    set key top left
    set xrange [1:2.2]
    set yrange [0:1.15]
    set label "three responses" at 1.78, 0.85 center
    set label "one response" at 1.95, 0.3 center
    set label "cusp" at 1.19, 0.13
    set arrow from 1, 0.5 to 2.2, 0.5 nohead dt 3 lc rgb "#888888"
    plot folds using 1:2 with lines lw 2 lc rgb "#1f4e9c" title "folds", \
         response using 1:(at_fold(0.5, $3)) with points pt 7 ps 1.2 lc rgb "black" title "those on the left"
    unset multiplot
}
