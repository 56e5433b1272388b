# Draws branches.csv and points.csv: gnuplot -e "directory='...'" plot.gp
if (!exists("directory")) directory = "."
branches = directory . "/branches.csv"
points = directory . "/points.csv"
set datafile separator comma
set grid lc rgb "#dddddd"
stable(x) = column("stable") == 1 ? x : NaN
of_branch(x) = $5 == 0.4 ? x : NaN
located(type, x) = strcol(2) eq type ? x : NaN
do for [format in "svg png"] {
    if (format eq "svg") { set terminal svg size 1000,420 font "Sans,13" background "white" }
    if (format eq "png") { set terminal pngcairo size 1500,630 font "Sans,15" }
    set output directory . "/co_oxidation." . format
    set multiplot layout 1,2
    set title "oxidation of CO: equilibria at k = 0.4"
    set xlabel "q_2"
    set ylabel "free oxygen x"
    set xrange [1.03:1.06]
    set yrange [0:0.16]
    set key top right
    plot branches index 0 using "q2":"x" with lines lw 2 dt 2 lc rgb "black" title "unstable", \
         branches index 0 using "q2":(stable(column("x"))) with lines lw 3 lc rgb "black" title "stable", \
         points using 4:(of_branch($6)) with points pt 7 ps 1 lc rgb "#c0392b" notitle, \
         points using 4:(of_branch($6)):1 with labels offset 2,0.5 notitle
    set title "their folds and Hopf points"
    set ylabel "k"
    set xrange [0.8:1.7]
    set yrange [0.1:1.4]
    set key bottom right
    plot branches index 1 using "q2":"k" with lines lw 2 lc rgb "black" title "LP", \
         branches index 2 using "q2":"k" with lines lw 2 lc rgb "#c0392b" title "H", \
         for [type in "CP BT GH"] points using 4:(located(type, $5)) with points pt 7 ps 0.9 lc rgb "#1f4e9c" notitle, \
         for [type in "CP BT GH"] points using 4:(located(type, $5)):2 with labels offset -2,0.3 notitle
    unset multiplot
}
