# Draws section_12.dat and section_8.dat: gnuplot -e "directory='...'" plot.gp
if (!exists("directory")) directory = "."
set xlabel "y"
set ylabel "p_y" norotate offset 2
set size ratio -1
set key off
set grid lt 1 lw 0.5 lc rgb "#dddddd"
unset colorbox
set palette defined (0 "#1f4e9c", 0.35 "#2e8b57", 0.65 "#c9a227", 1 "#c0392b")
set samples 10000
# The boundary, where p_x = 0. A little beyond its ends it is 0, which closes it.
square(y, e) = 2 * e - y**2 + 2 * y**3 / 3
half(y, e) = square(y, e) < -2e-4 ? NaN : square(y, e) > 0 ? sqrt(square(y, e)) : 0
do for [format in "svg png"] {
    if (format eq "svg") { set terminal svg size 1000,520 font "Sans,14" background "white" }
    if (format eq "png") { set terminal pngcairo size 1500,780 font "Sans,16" }
    set output directory . "/poincare." . format
    set multiplot layout 1,2 margins 0.07,0.98,0.1,0.88 spacing 0.07 title "Hénon–Heiles: crossings of x = 0 with p_x > 0"
    do for [part in "12 8"] {
        set title "energy 1/" . part
        e = 1.0 / part
        set xrange [-0.52:0.72]
        set yrange [-0.56:0.56]
        plot directory . "/section_" . part . ".dat" using 1:2:3 with points pt 7 ps 0.2 lc palette, \
             half(x, e) with lines lc rgb "#888888", -half(x, e) with lines lc rgb "#888888"
    }
    unset multiplot
}
