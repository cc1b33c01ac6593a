#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Where the system gives too few threads or descriptors the program says so at once, whatever the number; and where it
# gives enough, nothing is said.
set -euo pipefail
# shellcheck source=tests/cmd/lib.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib.sh"

# They look at memory through pipes of their own: without a descriptor for one, every address seems wrong to them.
if [[ -n ${ASAN_OPTIONS:-}${TSAN_OPTIONS:-} ]]; then
  echo "skipped: sanitizers need descriptors and threads themselves"
  exit 77
fi
make_slide

# An ordinary user, since the system does not count the super-user's processes; one without other processes, as far as
# that can be had.
user=()
mkdir open
if [[ $(id -u) == 0 ]] && setpriv --reuid=61234 --regid=61234 --clear-groups true 2>/dev/null; then
  user=(setpriv --reuid=61234 --regid=61234 --clear-groups)
  cp "$program" ./tarnstitch # which may lie where that user may not go
  program=$PWD/tarnstitch
  chmod -R a+rX .
  chmod 777 open
  export TMPDIR=$PWD/open
fi

# limited OPTION NUMBER: runs the program under a limit of the shell's, in open/. Leaves its exit code and what it said.
limited() {
  code=0
  (
    cd open
    ulimit "$1" "$2"
    HOME=$PWD exec "${user[@]}" "$program" ../slide -o "panorama.jpg"
  ) >stdout 2>stderr || code=$?
}

# Limits from hardly any to plenty: an early word, or a panorama.
for limit in 4 5 6 7 8 9 10 11 12 13 14 16 20; do
  rm -f open/panorama.jpg
  limited -n "$limit"
  if ((code == 0)); then
    expect_file open/panorama.jpg
    ! grep -qF "too few" stderr || fail "a shortage, with a panorama"
  else
    # Below that the system's loader may not get as far as the program.
    ((limit < 7)) || expect_said "too few files may be open at once"
    expect_no_file open/panorama.jpg
  fi
done
expect_equal "exit code with 20 descriptors" 0 "$code"

# The system counts a user's threads; where other processes of the user's run, any number may be too small.
if ((${#user[@]} > 0)); then
  for limit in 1 2 3 4 5; do
    limited -u "$limit"
    expect_equal "exit code with $limit threads" 5 "$code"
    expect_said "too few threads"
    expect_no_file open/panorama-partial.jpg
  done
  limited -u 64
  expect_equal "exit code with 64 threads" 0 "$code"
fi

echo "passed"
