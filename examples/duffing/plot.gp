# Draws response.dat: gnuplot -e "directory='...'" plot.gp
if (!exists("directory")) directory = "."
data = directory . "/response.dat"
set xlabel "ω"
set ylabel "largest |x|"
set title "x″ + 0.2 x′ + x + x³ = 0.5 cos ωt: response"
set key top right
set grid lc rgb "#dddddd"
set xrange [0.5:2.5]
stable(x, s) = s >= 1 ? x : NaN
unstable(x, s) = s != 1 ? x : NaN
at_fold(x, s) = s == 2 ? x : NaN
do for [format in "svg png"] {
    if (format eq "svg") { set terminal svg size 800,500 font "Sans,14" background "white" }
    if (format eq "png") { set terminal pngcairo size 1200,750 font "Sans,16" }
    set output directory . "/duffing." . format
    plot data using 1:(stable($2, $3)) with lines lw 3 lc rgb "#1f4e9c" title "stable", \
         data using 1:(unstable($2, $3)) with lines lw 2 dt 2 lc rgb "#c0392b" title "unstable", \
         data using 1:(at_fold($2, $3)) with points pt 7 ps 1.2 lc rgb "black" title "fold"
}
