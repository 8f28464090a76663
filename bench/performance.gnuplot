# User instructions by peer, and how the module's cost grows. The variables come from bench/report.py.
set terminal svg size 1000,780 font "sans-serif,12" background rgb "#ffffff" noenhanced
set output picture
set datafile separator "\t"
set multiplot
set grid ytics linecolor rgb "#dddddd"

# Grey by hand, blue the module; the libraries' colours stay apart from these and from each other, and come again where
# there are more.
array colours[13] = ["#777777", "#bbbbbb", "#3366aa", "#77aadd", \
    "#cc3311", "#ee7733", "#e69f00", "#ddcc55", "#44aa77", "#117755", "#aa4499", "#995522", "#886688"]
colour(i) = colours[i <= 4 ? i : 5 + (i - 5) % (|colours| - 4)]

set lmargin at screen 0.08
set rmargin at screen 0.985
set tmargin at screen 0.955
set bmargin at screen 0.60
set title "User instructions for one operation, on a logarithmic scale" offset 0,-0.4
set ylabel "user instructions" offset 0.5
set xlabel "operation" offset 0,0.4
set logscale y
set yrange [20:30000]
set xrange [-0.6:groups - 0.4]
set style data histograms
set style histogram clustered gap 1.5
set style fill solid 0.9 noborder
set xtics nomirror scale 0
set ytics nomirror
# Two to a column: those by hand, and the module's.
set key at screen 0.53, screen 0.505 center center vertical maxrows 2 samplen 1 width -3
operations = folder."/operations"
plot for [i = 1:bars] operations using (column(i + 1)):xtic(1) linecolor rgb colour(i) title columnheader(i + 1)

unset logscale y
set yrange [0:*]
set xrange [0:66]
set xtics (1, 8, 16, 32, 64) scale 0.5
set xlabel "addresses"
set tmargin at screen 0.42
set bmargin at screen 0.085
set style data linespoints
set key inside top left vertical Left reverse maxrows auto samplen 1.5 width 0
lists = "#117755 #3366aa #cc3311 #e69f00 #aa4499 #44aa77"

set rmargin at screen 0.34
set title "SCTP, addresses as records"
plot for [i = 1:records] folder."/records" using 1:(column(i + 1)) pointtype 7 pointsize 0.5 linewidth 1.5 \
    linecolor rgb word(lists, i) title columnheader(i + 1)

set lmargin at screen 0.43
set rmargin at screen 0.685
set title "SCTP, addresses as texts"
plot for [i = 1:texts] folder."/texts" using 1:(column(i + 1)) pointtype 7 pointsize 0.5 linewidth 1.5 \
    linecolor rgb word(lists, i + 1) title columnheader(i + 1)

set lmargin at screen 0.76
set rmargin at screen 0.985
set title "A TCP server, made in each thread"
set xlabel "threads"
set ylabel "user instructions of one thread" offset 0.5
set xrange [0:17]
set xtics (1, 2, 4, 8, 16)
unset key
plot folder."/threads" using 1:2 pointtype 7 pointsize 0.6 linewidth 1.5 linecolor rgb "#3366aa"
unset multiplot
