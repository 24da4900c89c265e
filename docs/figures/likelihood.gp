# Three panels from the lines of likelihood.c:  gnuplot -e "data='file'" likelihood.gp > likelihood.png
set terminal pngcairo size 900,300 font "sans,9"
set multiplot layout 1,3
unset key
set xrange [-6:6]
set xtics 2
set samples 400
set xlabel "residual r"
set grid back lc rgb "#dddddd"
set linetype 1 lc rgb "#1f4e79" lw 2
set linetype 2 lc rgb "#aaaaaa" lw 1 dt 2
set yrange [0:30]
set title "cost n(r)"
plot 4.5*x*x lt 2, data using 1:2 with lines lt 1
set yrange [-30:30]
set title "influence n'(r)"
plot 9*x lt 2, data using 1:3 with lines lt 1
set yrange [0:10]
set title "weight n'(r)/r"
plot 9 lt 2, data using 1:4 with lines lt 1
unset multiplot
