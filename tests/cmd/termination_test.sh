#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# SIGTERM at each stage of a run, and at moments spread over the whole of one: the program ends at once, outputs are
# earlier ones or whole, nothing is left behind, and with --skip-done the next run makes what is missing.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

make_slide
finish=(--finish)
if ! "$program" slide -q -o first.jpg --finish 2>stderr; then
  expect_said "finish" # a program built without it says so
  finish=()
fi

# ended_by_term WHEN [LAST]: SIGTERM ends the program that was started, and nothing is left behind. Fails then when the
# program had come to its end before the signal came to it, which is right if its last file is there.
ended_by_term() {
  local code=0
  kill -s TERM "$started"
  kill -s CONT "$started"
  { wait "$started" || code=$?; } 2>/dev/null # the shell tells of a termination
  expect_nothing_left
  [[ $code -ne 0 || -z ${2:-} ]] || { expect_file "$2" && return 1; }
  expect_equal "exit code after SIGTERM $1" 143 $code
}

# expect_whole_outputs NAME...: nothing but these lies in out, and what lies there is whole. The last step of an output
# may still be done by the time that the signal is heard.
expect_whole_outputs() {
  local file name
  for file in out/*; do
    [[ -e $file ]] || continue
    "$media" size "$file" >/dev/null || fail "$file is broken"
    for name in "$@"; do
      [[ $file != "out/$name" ]] || continue 2
    done
    fail "there is $file"
  done
}

# While the input is being opened, which keeps it waiting.
mkfifo input
env --default-signal "$program" input -o opened.jpg --frames opened.csv >stdout 2>stderr &
started=$!
exec 9>input # comes back once the program has opened it
ended_by_term "while the input is opened"
exec 9>&-
expect_no_file opened.jpg
expect_no_file opened.csv

# hold_when CONDITION COMMAND...: runs a command in the background, and holds the program in it by SIGSTOP as soon as the
# condition, a function, is met and still holds. A busy machine may come too late; then it is done anew, some times.
hold_when() {
  local condition=$1 round state
  shift
  for ((round = 0; round < 30; ++round)); do
    "$@" >stdout 2>stderr &
    started=$!
    until "$condition" || ! kill -0 "$started" 2>/dev/null; do :; done
    state=
    until [[ $state == [TZ] ]]; do
      kill -s STOP "$started" 2>/dev/null || break
      read -r _ _ state _ 2>/dev/null <"/proc/$started/stat" || break
    done
    if [[ $state == T ]] && "$condition"; then
      return 0
    fi
    kill -s CONT "$started" 2>/dev/null || true
    wait "$started" || true
    rm -f out/*
  done
  return 1
}

# While an output is being written, under its temporary name.
mkdir out
is_writing() {
  local file
  for file in out/.tarnstitch-*; do
    [[ ! -s $file ]] || return 0
  done
  return 1
}
if hold_when is_writing env --default-signal "$program" slide -o out/written.tif \
  && ended_by_term "while an output is written" out/written.tif; then
  expect_whole_outputs written.tif
else
  echo "never met while it was writing"
fi
rm -f out/*

# While the finished picture is being made, when the panorama has been written.
is_finishing() {
  [[ -e out/a.png && ! -e out/a-finished.png ]]
}
if ((${#finish[@]} > 0)); then
  if hold_when is_finishing env --default-signal "$program" slide --finish -o out/a.png \
    && ended_by_term "while the finished picture is made" out/a-finished.png; then
    expect_whole_outputs a.png a-finished.png
    run 0 slide -o b.png
    cmp b.png out/a.png
  else
    echo "never met while it was finishing"
  fi
fi

# Whenever it comes: at moments spread over the time that the first of these runs takes.
asked=(slide "${finish[@]}" --skip-done -o out/a.jpg --preview out/p.png --frames out/f.csv --report out/r.html
  --keep-work out/kept)
begun=${EPOCHREALTIME/./}
run 0 "${asked[@]}"
took=$((${EPOCHREALTIME/./} - begun)) # microseconds
rounds=10
for ((round = 1; round <= rounds; ++round)); do
  rm -rf out
  mkdir out
  echo kept | tee out/a.jpg out/a-finished.jpg out/p.png out/f.csv >out/r.html
  code=0
  moment=$((took * round / rounds))
  timeout --preserve-status --signal=TERM "$((moment / 1000000)).$(printf %06d $((moment % 1000000)))" \
    env --default-signal "$program" "${asked[@]}" >stdout 2>stderr || code=$?
  [[ $code -eq 0 || $code -eq 143 ]] || fail "exit code $code after SIGTERM in round $round"
  expect_nothing_left
  for file in out/a.jpg out/p.png out/kept/*; do
    [[ ! -e $file || $(head -c 4 "$file") == kept ]] || "$media" size "$file" >/dev/null || fail "$file is broken"
  done
  [[ $(head -c 4 out/f.csv) == kept || $(wc -l <out/f.csv) -eq 9 ]] || fail "a part of the table of frames"
  [[ $(head -c 4 out/r.html) == kept || $(tail -n 1 out/r.html) == "</html>" ]] || fail "a part of the report"
  if [[ -e out/a.jpg.json ]]; then
    run 0 "${asked[@]}"
    expect_said "nothing to do"
  elif ((round % 4 == 0)); then # what is missing is made, and nothing of it twice
    run 0 "${asked[@]}"
    expect_said "8 frames, 8 taken"
    run 0 "${asked[@]}"
    expect_said "nothing to do"
  fi
done

echo "passed"
