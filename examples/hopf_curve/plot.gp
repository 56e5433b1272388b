# Draws branch.dat and curve.dat: gnuplot -e "directory='...'" plot.gp
if (!exists("directory")) directory = "."
do for [format in "svg png"] {
    if (format eq "svg") { set terminal svg size 1000,420 font "Sans,13" background "white" }
    if (format eq "png") { set terminal pngcairo size 1500,630 font "Sans,15" }
    set output directory . "/hopf_curve." . format
    set multiplot layout 1,2
    unset label
    set title "equilibrium at A = 1, up to its Hopf bifurcation"
    set xlabel "B"
    set ylabel "y"
    set key top left
    plot directory . "/branch.dat" using 1:3 with lines lw 3 lc rgb "#1f4e9c" title "stable", \
         directory . "/branch.dat" using 1:3 every ::14 with points pt 7 ps 1 lc rgb "black" title "Hopf bifurcation"
    set title "Hopf bifurcations"
    set xlabel "A"
    set ylabel "B"
    set label "a cycle" at graph 0.25, 0.75
    set label "a stable equilibrium" at graph 0.5, 0.2
    plot directory . "/curve.dat" using 1:2 with points pt 7 ps 0.7 lc rgb "#c0392b" title "tx", \
         1 + x**2 with lines lw 1 lc rgb "#888888" title "B = 1 + A²"
    unset multiplot
}
