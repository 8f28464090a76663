# Throughput of each path over time, and under it the state of each path. The variables come from tools/failover.
set terminal svg size 900,540 font "sans-serif,13" background rgb "white" noenhanced
set output picture
set multiplot
set lmargin at screen 0.10
set rmargin at screen 0.97
set xrange [0:last]
set arrow 1 from cut, graph 0 to cut, graph 1 nohead dashtype 2 linewidth 1.5 linecolor rgb "#cc3311"
set arrow 2 from restored, graph 0 to restored, graph 1 nohead dashtype 2 linewidth 1.5 linecolor rgb "#117733"

set tmargin at screen 0.88
set bmargin at screen 0.46
set title "One association, two paths of 40 Mbit/s: the first loses every packet for a while" offset 0,0.7
set label 1 "path 1 cut" at cut, graph 1.05 center textcolor rgb "#cc3311"
set label 2 "path 1 restored" at restored, graph 1.05 center textcolor rgb "#117733"
set ylabel "arriving, Mbit/s" offset 0.5
set yrange [0:60]
set ytics 10
set grid ytics linecolor rgb "#dddddd"
set format x ""
set key top right horizontal
set style fill transparent solid 0.35
rates = folder."/throughput"
plot rates using 1:2 with filledcurves y1=0 linecolor rgb "#3366aa" notitle, \
     rates using 1:3 with filledcurves y1=0 linecolor rgb "#e69f00" notitle, \
     rates using 1:2 with lines linewidth 2 linecolor rgb "#3366aa" title "over path 1", \
     rates using 1:3 with lines linewidth 2 linecolor rgb "#e69f00" title "over path 2"

unset title
unset label 1
unset label 2
unset grid
set tmargin at screen 0.42
set bmargin at screen 0.21
set format x "%g"
set xlabel "seconds"
unset ylabel
set yrange [2.6:0.4]
set ytics ("path 1" 1, "path 2" 2)
set label 3 "path as the sender sees it:" at screen 0.10, screen 0.055
set key at screen 0.98, screen 0.085 horizontal maxrows 1 samplen 1.5 width -4
set style fill solid 0.9 noborder
colour(state) = state == 3 ? 0x44aa77 : state == 2 ? 0xddcc55 : state == 1 ? 0xcc4433 : 0xaaaaaa
states = folder."/states"
plot states using (($1 + $2) / 2):3:1:2:($3 - 0.3):($3 + 0.3):(colour($4)) with boxxyerror linecolor rgb variable notitle, \
     NaN with boxes linecolor rgb 0x44aa77 title "active", NaN with boxes linecolor rgb 0xddcc55 title "potentially failed", \
     NaN with boxes linecolor rgb 0xcc4433 title "inactive", NaN with boxes linecolor rgb 0xaaaaaa title "unconfirmed"
unset multiplot
