# User instructions by peer, and how the module's cost grows. The variables come from bench/report.py.
set terminal svg size 1000,720 font "sans-serif,12" background rgb "white" noenhanced
set output picture
set datafile separator "\t"
set multiplot
set grid ytics linecolor rgb "#dddddd"

# Grey by hand, blue the module; the libraries' colours stay apart from these and from each other.
array colours[11] = ["#777777", "#bbbbbb", "#3366aa", "#77aadd", \
    "#cc3311", "#ee7733", "#e69f00", "#ddcc55", "#44aa77", "#117755", "#aa4499"]

set lmargin at screen 0.06
set rmargin at screen 0.985
set tmargin at screen 0.95
set bmargin at screen 0.60
set title "User instructions for one operation" offset 0,-0.4
set logscale y
set yrange [20:30000]
set xrange [-0.6:6.6]
set style data histograms
set style histogram clustered gap 1.5
set style fill solid 0.9 noborder
set xtics nomirror scale 0
set ytics nomirror
set key at screen 0.525, screen 0.52 center center horizontal maxrows 2 samplen 1 width 1
operations = folder."/operations"
plot for [i = 1:11] operations using (column(i + 1)):xtic(1) linecolor rgb colours[i] title columnheader(i + 1)

unset logscale y
set yrange [0:*]
set xrange [0:66]
set xtics (1, 8, 16, 32, 64) scale 0.5
set xlabel "addresses" offset 0,0.4
set tmargin at screen 0.42
set bmargin at screen 0.09
set style data linespoints
set key inside top left vertical Left reverse maxrows auto samplen 1.5 width 0
records = folder."/records"
texts = folder."/texts"

set rmargin at screen 0.34
set title "SCTP, addresses as records"
plot for [i = 1:4] records using 1:(column(i + 1)) pointtype 7 pointsize 0.5 linewidth 1.5 \
    linecolor rgb word("#117755 #3366aa #cc3311 #e69f00", i) title columnheader(i + 1)

set lmargin at screen 0.41
set rmargin at screen 0.68
set title "SCTP, addresses as texts"
plot for [i = 1:2] texts using 1:(column(i + 1)) pointtype 7 pointsize 0.5 linewidth 1.5 \
    linecolor rgb word("#3366aa #cc3311", i) title columnheader(i + 1)

set lmargin at screen 0.74
set rmargin at screen 0.985
set title "A TCP server, made in each thread"
set xlabel "threads"
set xrange [0:17]
set xtics (1, 2, 4, 8, 16)
unset key
plot folder."/threads" using 1:2 pointtype 7 pointsize 0.6 linewidth 1.5 linecolor rgb "#3366aa"
unset multiplot
