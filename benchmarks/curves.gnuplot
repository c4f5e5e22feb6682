# Draws one line per block of a data file, both axes logarithmic. report.py sets what differs between the pictures:
# data, picture, styles (the line style of each block), heading, xAxis and yAxis.

set terminal svg size 860,520 font 'sans-serif,13' background '#ffffff' name 'curve'
set output picture
set title heading font ',16'
set xlabel xAxis
set ylabel yAxis
set logscale xy
set format x '%.0s%c'
set format y '%g'
set ytics (0.02, 0.05, 0.1, 0.2, 0.5, 1, 2, 5, 10, 20, 50)
set autoscale fix
set offsets graph 0.04, graph 0.04, graph 0.06, graph 0.06
set grid xtics ytics mxtics linetype 1 linecolor '#d8d8d8', linetype 1 linecolor '#eeeeee'
set border 3 linecolor '#606060'
set tics nomirror
set key outside right center Left reverse noenhanced samplen 2 spacing 1.3

# One colour a peer, in the order of report.py; this project's line is the thick one.
set style line 1 linecolor '#000000' linewidth 3.5 pointtype 7 pointsize 0.7
set style line 2 linecolor '#0072b2' linewidth 1.8 pointtype 5 pointsize 0.6
set style line 3 linecolor '#808080' linewidth 1.8 pointtype 12 pointsize 0.7
set style line 4 linecolor '#808080' linewidth 1.8 pointtype 12 pointsize 0.7
set style line 5 linecolor '#0072b2' linewidth 1.8 pointtype 5 pointsize 0.6
set style line 6 linecolor '#56b4e9' linewidth 1.8 pointtype 9 pointsize 0.7
set style line 7 linecolor '#8c6bb1' linewidth 1.8 pointtype 11 pointsize 0.7
set style line 8 linecolor '#009e73' linewidth 1.8 pointtype 13 pointsize 0.7
set style line 9 linecolor '#7fbc41' linewidth 1.8 pointtype 4 pointsize 0.6
set style line 10 linecolor '#e69f00' linewidth 1.8 pointtype 6 pointsize 0.6
set style line 11 linecolor '#d55e00' linewidth 1.8 pointtype 8 pointsize 0.7
set style line 12 linecolor '#cc79a7' linewidth 1.8 pointtype 10 pointsize 0.7
set style line 13 linecolor '#d55e00' linewidth 1.8 pointtype 8 pointsize 0.7

plot for [k = 1:words(styles)] data index k - 1 using 1:2 with linespoints linestyle int(word(styles, k)) \
    title columnheader(2)
