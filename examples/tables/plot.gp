# Draws attractor.dat: gnuplot -e "directory='...'" plot.gp
if (!exists("directory")) directory = "."
data = directory . "/attractor.dat"
set key off
set xlabel "x"
set ylabel "y"
set zlabel "z" offset 3
set title "Rössler attractor, a = b = 0.2, c = 5.7" offset 0,-4
set xyplane 0
set origin 0,0.07
set xtics 5
set ytics 5
set ztics 10,10
set grid lt 1 lw 0.5 lc rgb "#dddddd"
set xrange [-10:12.5]
set yrange [-12:8]
set zrange [0:24]
set view 62, 35, 1.1, 1.2
set palette defined (0 "#1f4e9c", 1 "#2e8b57", 4 "#c9a227", 10 "#c0392b")
unset colorbox
do for [format in "svg png"] {
    if (format eq "svg") { set terminal svg size 800,640 font "Sans,14" background "white" }
    if (format eq "png") { set terminal pngcairo size 1200,960 font "Sans,16" }
    set output directory . "/tables." . format
    splot data using 2:3:4:4 with lines lw 0.5 lc palette
}
