# Draws branches.csv and points.csv: gnuplot -e "directory='...'" plot.gp
if (!exists("directory")) directory = "."
branches = directory . "/branches.csv"
points = directory . "/points.csv"
set datafile separator comma
set grid lc rgb "#dddddd"
stable(x) = column("stable") == 1 ? x : NaN
of_branch(x) = strlen(strcol(2)) <= 2 && $5 == 0.04 ? x : NaN
located(type, x) = strcol(2) eq type ? x : NaN
do for [format in "svg png"] {
    if (format eq "svg") { set terminal svg size 1000,420 font "Sans,13" background "white" }
    if (format eq "png") { set terminal pngcairo size 1500,630 font "Sans,15" }
    set output directory . "/lorenz84." . format
    set multiplot layout 1,2
    set title "Lorenz-84 with a fourth variable: equilibria at T = 0.04"
    set xlabel "F"
    set ylabel "X"
    set xrange [1:3]
    set yrange [0.8:3]
    set key top left
    plot branches index 0 using "F":"X" with lines lw 2 dt 2 lc rgb "black" title "unstable", \
         branches index 0 using "F":(stable(column("X"))) with lines lw 3 lc rgb "black" title "stable", \
         points using 4:(of_branch($7)) with points pt 7 ps 1 lc rgb "#c0392b" notitle, \
         points using 4:(of_branch($7)):1 with labels offset 1,-1 notitle
    set title "their folds and Hopf points"
    set ylabel "T"
    set yrange [-0.1:0.1]
    set key bottom left
    plot branches index 1 using "F":"T" with lines lw 2 lc rgb "black" title "LP", \
         for [k = 2:3] branches index k using "F":"T" with lines lw 2 lc rgb "#c0392b" title (k == 2 ? "H" : ""), \
         for [type in "CP BT ZH GH HH"] points using 4:(located(type, $5)) with points pt 7 ps 0.9 lc rgb "#1f4e9c" notitle, \
         for [type in "BT GH HH"] points using 4:(located(type, $5)):2 with labels offset 1.4,0.6 notitle, \
         points using 4:(located("CP", $5)):2 with labels offset -2,1 notitle, \
         points using 4:(located("ZH", $5)):2 with labels offset -2,-0.2 notitle
    unset multiplot
}
