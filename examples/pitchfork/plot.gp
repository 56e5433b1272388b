# Draws what the program wrote: gnuplot -e "directory='...'" plot.gp
if (!exists("directory")) directory = "."
perfect = directory . "/perfect_"
imperfect = directory . "/imperfect_"
set datafile separator comma
set grid lc rgb "#dddddd"
set key top left
stable(x) = column("stable") == 1 ? x : NaN
do for [format in "svg png"] {
    if (format eq "svg") { set terminal svg size 1200,400 font "Sans,13" background "white" }
    if (format eq "png") { set terminal pngcairo size 1800,600 font "Sans,15" }
    set output directory . "/pitchfork." . format
    set multiplot layout 1,3
    set xlabel "c"
    set ylabel "x"
    set xrange [-1:1]
    set yrange [-1.2:1.2]
    do for [case in "0 1"] {
        data = (case eq "0" ? perfect : imperfect) . "branches.csv"
        marks = (case eq "0" ? perfect : imperfect) . "points.csv"
        set title (case eq "0" ? "x' = c x - x³" : "x' = c x - x³ + 0.02")
        last = (case eq "0" ? 2 : 1)
        plot for [k = 0:last] data index k using "c":"x" with lines lw 2 dt 2 lc rgb "black" title (k == 0 ? "unstable" : ""), \
             for [k = 0:last] data index k using "c":(stable(column("x"))) with lines lw 3 lc rgb "black" title (k == 0 ? "stable" : ""), \
             marks using 4:(strcol(2) eq "CP" ? NaN : $6) with points pt 7 ps 1 lc rgb "#c0392b" notitle, \
             marks using 4:(strcol(2) eq "CP" ? NaN : $6):1 with labels offset 2,1 notitle
    }
    set title "fold of x' = c x - x³ + e"
    set ylabel "e"
    set xrange [-0.4:1]
    set yrange [-0.4:0.4]
    plot imperfect . "branches.csv" index 2 using "c":"e" with lines lw 2 lc rgb "black" title "LP", \
         imperfect . "points.csv" using 4:(strcol(2) eq "CP" ? $5 : NaN) with points pt 7 ps 1 lc rgb "#1f4e9c" title "cusp"
    unset multiplot
}
