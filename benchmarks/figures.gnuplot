# SPDX-License-Identifier: Apache-2.0
#
# Draws the tables of the benchmarks. Called by scripts/bench.sh --figures with the variables
#   tables   the directory with the benchmarks' .csv files
#   images   the directory for the pictures
set datafile separator ","
set terminal svg size 720,420 font "sans-serif,13" background "white"
set grid ytics lc rgb "#dddddd"
set border 3
set tics nomirror
set key top left Left reverse
set yrange [0:*]
set style line 1 lw 2 pt 7 ps 0.6 lc rgb "#999999"
set style line 2 lw 2 pt 7 ps 0.6 lc rgb "#d95f02"
set style line 3 lw 2 pt 7 ps 0.6 lc rgb "#1b7837"
set style line 4 lw 2 pt 7 ps 0.6 lc rgb "#2166ac"

# Rows of a table by the texts in its columns subject and by, and the number of threads. $2 becomes two numbers at
# its "x": the frame's size; or begins with one: the key frames so far.
rows(file, subject, by, threads) = \
  sprintf("< awk -F, '$1 == \"%s\" && $3 == \"%s\" && $4 == %d { sub(/ .*/, \"\", $2); split($2, s, \"x\"); print s[1] \",\" s[2] \",\" $5 }' %s/%s.csv", \
          subject, by, threads, tables, file)
megapixels(column_width, column_height) = column(column_width) * column(column_height) / 1e6

set output images . "/frame-time.svg"
set title "An ordinary frame: videoStitch by frame size"
set xlabel "megapixels of the frame (640x480, 1280x720, 1920x1080, 3840x2160)"
set ylabel "ms, median"
set xrange [0:8.6]
frame(by, threads) = rows("live_path_benchmark", "ordinary frame", by, threads)
plot frame("plain transcription", 1) using (megapixels(1, 2)):3 with linespoints ls 1 title "plain transcription, one thread", \
     frame("bare library calls", 1) using (megapixels(1, 2)):3 with linespoints ls 2 title "bare library calls, one thread", \
     frame("videoStitch", 1) using (megapixels(1, 2)):3 with linespoints ls 3 title "videoStitch, one thread", \
     frame("videoStitch", 2) using (megapixels(1, 2)):3 with linespoints ls 4 title "videoStitch, two threads"

set output images . "/turn-time.svg"
set title "Composing a 1920x1080 key frame in the worker's turn, by panorama length"
set xlabel "key frames in the panorama"
set xrange [0:65]
turn(by) = rows("worker_benchmark", "composition in a turn", by, 1)
plot turn("plain transcription") using 1:3 with linespoints ls 1 title "plain transcription, a new canvas per turn", \
     turn("shipped") using 1:3 with linespoints ls 3 title "in the panorama's own storage"
