# Throughput of each path over time, and under it the state of each path. The tables and the variables come from
# tools/failover.
load "variables"
set terminal svg size 900,520 font "sans-serif,13" background rgb "white" noenhanced
set multiplot
set lmargin at screen 0.09
set rmargin at screen 0.97
set xrange [0:last]
set arrow 1 from cut, graph 0 to cut, graph 1 nohead dashtype 2 linewidth 1.5 linecolor rgb "#dd4422"
set arrow 2 from restored, graph 0 to restored, graph 1 nohead dashtype 2 linewidth 1.5 linecolor rgb "#2f9048"

set tmargin at screen 0.83
set bmargin at screen 0.42
set label 10 sprintf("One association over two paths of %d Mbit/s: one loses every packet for a while", rate) \
    at screen 0.09, screen 0.96 left font ",15"
set label 1 sprintf("path %d cut", used) at cut, graph 1.05 center textcolor rgb "#dd4422"
set label 2 sprintf("path %d restored", used) at restored, graph 1.05 center textcolor rgb "#2f9048"
set ylabel "arriving, Mbit/s" offset 0.5
set yrange [0:rate * 1.3]
set ytics 10
set grid ytics linecolor rgb "#dddddd"
set format x ""
set key at screen 0.085, screen 0.925 left Left reverse horizontal samplen 2
set object 1 rectangle from silent, 0 to heard, graph 1 behind fillstyle solid 0.4 noborder fillcolor rgb "#999999"
set label 3 sprintf("silence of %.2f s", heard - silent) at heard, graph 0.91 left offset 0.6
set style fill transparent solid 0.35 noborder
plot "throughput" using 1:2 with fillsteps linecolor rgb "#4477aa" notitle, \
     "throughput" using 1:3 with fillsteps linecolor rgb "#ee9900" notitle, \
     "throughput" using 1:2 with steps linewidth 2 linecolor rgb "#4477aa" title "over path 1", \
     "throughput" using 1:3 with steps linewidth 2 linecolor rgb "#ee9900" title "over path 2"

unset label
unset object
unset grid
unset ylabel
set tmargin at screen 0.38
set bmargin at screen 0.20
set format x "%g"
set xlabel "seconds"
set yrange [2.6:0.4]
set ytics ("path 1" 1, "path 2" 2)
set label 4 "path as the sender sees it:" at screen 0.09, screen 0.045 left
set key at screen 0.33, screen 0.065 left Left reverse horizontal samplen 1.5
set style fill solid 0.9 noborder
array name[4] = ["active", "potentially failed", "inactive", "unconfirmed"]
array colour[4] = [0x44aa77, 0xddbb33, 0xcc4433, 0x999999]
plot for [state in seen] "states" using \
         ($4 == state ? ($1 + $2) / 2 : NaN):3:1:2:($3 - 0.3):($3 + 0.3) with boxxyerror \
         linecolor rgb colour[state + 1] title name[state + 1]
unset multiplot
