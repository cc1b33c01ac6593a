# shellcheck shell=bash disable=SC2034
# SPDX-License-Identifier: Apache-2.0
#
# What the tests of the command-line host share. Sourced with three arguments: the program, the directory of
# the samples, the media tool. Each test works in a fresh directory, $work, and gives the program a directory for
# temporary files of its own, so that what is left behind shows.

# The tests read and write numbers with a decimal point, and their messages are English.
export LC_ALL=C
unset OPENCV_LOG_LEVEL

program=$1
samples=$2
media=$3
work=$(mktemp -d)
cd "$work" || exit 1
# shellcheck disable=SC2154 # the name is the test's, which sources this file
trap 'rc=$?; chmod -R u+rwx "$work"; rm -rf "$work"; exit $rc' EXIT

export TMPDIR=$work/temporary
mkdir "$TMPDIR"

fail() {
  echo "FAILED: $*" >&2
  echo "--- standard error of the last run:" >&2
  cat "$work/stderr" >&2 || true
  exit 1
}

# run CODE ARGUMENT...: runs the program, expects the exit code, an empty standard output and no temporary
# files left. Its standard error is in $work/stderr, but for the lines on progress, which a slow machine brings
# about; with them it is in $work/stderr.all.
run() {
  local expected=$1 code=0
  shift
  "$program" "$@" >"$work/stdout" 2>"$work/stderr.all" || code=$?
  grep -v -e '^tarnstitch: frame [0-9].* key frame' -e '^tarnstitch: finishing: ' "$work/stderr.all" >"$work/stderr" || true
  [[ $code -eq $expected ]] || fail "exit code $code instead of $expected: tarnstitch $*"
  [[ ! -s $work/stdout ]] || fail "something on standard output: tarnstitch $*"
  expect_nothing_left
}

expect_nothing_left() {
  local left
  left=$(find "$TMPDIR" -mindepth 1; find "$work" -name '.tarnstitch-*')
  [[ -z $left ]] || fail "left behind: $left"
}

# expect_error CODE TEXT ARGUMENT...: runs the program, expects the exit code and one line on standard error
# that contains the text.
expect_error() {
  local expected=$1 text=$2
  shift 2
  run "$expected" "$@"
  [[ $(wc -l <"$work/stderr") -eq 1 ]] || fail "not one line: tarnstitch $*"
  expect_said "tarnstitch: "
  expect_said "$text"
}

# expect_said TEXT: the last run's standard error contains the text.
expect_said() {
  grep -qF -e "$1" "$work/stderr" || fail "not said: $1"
}

expect_file() {
  [[ -s $1 ]] || fail "no file $1"
}

expect_no_file() {
  [[ ! -e $1 ]] || fail "there is a file $1"
}

# expect_equal WHAT EXPECTED ACTUAL
expect_equal() {
  [[ $2 == "$3" ]] || fail "$1: $3 instead of $2"
}

# A short sweep to the right over a textured picture: $work/slide/1.png to 8.png, 480x360 pixels each.
make_slide() {
  mkdir slide
  "$media" slide slide/%d.png 8 480 360 30 1
  touch -d 2024-01-02T03:04:05 slide/*.png # their time goes into the panorama
}

# The same, with a pipe for the fourth picture: the program waits there, in the middle of the sweep.
make_waiting_slide() {
  make_slide
  rm slide/4.png
  mkfifo slide/4.png
}

# start COMMAND...: runs a command in the background until the program in it waits for the fourth picture. A shell
# without job control starts such commands with SIGINT ignored; env undoes that.
start() {
  "$@" >stdout 2>stderr &
  started=$!
  exec 9>slide/4.png
  [[ $(find "$TMPDIR" -mindepth 1 -maxdepth 1 -type d -name 'tarnstitch-*' -perm 700 | wc -l) -eq 1 ]] \
    || fail "no private working directory"
}

# start_held COMMAND...: runs a command in the background, and holds the program in it in its first try by SIGSTOP. The
# program has read its first picture then, for there is the library's working directory. A busy machine may come too
# late for the first try; then it is done anew.
start_held() {
  local round state
  for ((round = 0; round < 100; ++round)); do
    "$@" >stdout 2>stderr &
    started=$!
    until compgen -G "$TMPDIR/tarnstitch-*" >/dev/null || ! kill -0 "$started" 2>/dev/null; do :; done
    state=
    until [[ $state == [TZ] ]]; do
      kill -s STOP "$started" 2>/dev/null || break
      read -r _ _ state _ 2>/dev/null <"/proc/$started/stat" || break
    done
    if [[ $state == T ]] && ! grep -qF "trying once more" stderr; then
      return 0
    fi
    kill -s TERM "$started" 2>/dev/null || true
    kill -s CONT "$started" 2>/dev/null || true
    { wait "$started" || true; } 2>/dev/null # the shell tells of a termination
  done
  fail "never held in the first try: $*"
}

# until_said TEXT: waits until the program started has said it.
until_said() {
  local round
  for ((round = 0; round < 6000; ++round)); do
    ! grep -qF -e "$1" stderr || return 0
    sleep 0.01
  done
  fail "not said: $1"
}

# let_go CODE: the picture comes, which is none, and the program started goes on to its end and exits with the code.
let_go() {
  local code=0
  echo "no image" >&9
  exec 9>&-
  wait "$started" || code=$?
  expect_equal "exit code" "$1" $code
  expect_nothing_left
}
