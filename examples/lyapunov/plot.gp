# Draws estimate.dat: gnuplot -e "directory='...'" plot.gp
if (!exists("directory")) directory = "."
data = directory . "/estimate.dat"
set logscale x
set xrange [2:5000]
set grid xtics ytics lt 1 lw 0.5 lc rgb "#dddddd"
set key off
set ytics 0.5 nomirror
set y2tics 0.5
set format y "%.1f"
set format y2 "%.1f"
set link y2 via y * log(2) inverse y / log(2)
do for [format in "svg png"] {
    if (format eq "svg") { set terminal svg size 800,620 font "Sans,14" background "white" }
    if (format eq "png") { set terminal pngcairo size 1200,930 font "Sans,16" }
    set output directory . "/lyapunov." . format
    set multiplot title "Lyapunov exponents of the Lorenz attractor, σ = 10, ρ = 28, β = 8/3"
    set lmargin 10
    set rmargin 10
    set ylabel "bits per unit of time"
    set y2label "nats per unit of time" offset 1
    set size 1,0.6; set origin 0,0.35
    set bmargin 1
    set tmargin 2.5
    set format x ""
    set xlabel
    set yrange [-0.5:2.5]
    set label 1 "λ_1" at graph 0.93, first 1.5 tc rgb "#1f4e9c"
    set label 2 "λ_2" at graph 0.93, first 0.2 tc rgb "#2e8b57"
    plot data using 1:2 with lines lw 2 lc rgb "#1f4e9c", \
         data using 1:3 with lines lw 2 lc rgb "#2e8b57"
    set size 1,0.345; set origin 0,0
    set bmargin 3.5
    set tmargin 0.5
    set format x "%g"
    set xlabel "time measured"
    set ylabel "bits"
    set y2label "nats" offset -1
    set yrange [-22:-20]
    unset label 2
    set label 1 "λ_3" at graph 0.93, first -20.75 tc rgb "#c0392b"
    plot data using 1:4 with lines lw 2 lc rgb "#c0392b"
    unset multiplot
}
