#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The manual page and the completions know every option, and the tools that read them find no fault.
# usage: documents_test.sh PROGRAM DIRECTORY
set -euo pipefail

program=$1
documents=$2

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

mapfile -t options < <("$program" --help | sed -nE 's/^  (-., )?(--[a-z-]+).*/\2/p')
((${#options[@]} > 20)) || fail "only ${#options[@]} options"

plain_manual=$(sed 's/\\-/-/g' "$documents/tarnstitch.1")
for option in "${options[@]}"; do
  grep -qF -e "$option" <<<"$plain_manual" || fail "the manual page is without $option"
  grep -qF -e "$option" "$documents/tarnstitch.bash" || fail "bash does not know $option"
  grep -qF -e "$option" "$documents/_tarnstitch" || fail "zsh does not know $option"
done
# Every option is tested on the program itself.
commands=$(grep -hv '^ *#' "$(dirname "${BASH_SOURCE[0]}")"/*_test.sh | grep -E 'program"|run [0-9]|expect_error|wrong |press')
for option in "${options[@]}"; do
  grep -qF -e " $option" <<<"$commands" || fail "no test runs the program with $option"
done
for code in 0 1 2 3 4 5 130; do
  grep -qx "\.B $code" "$documents/tarnstitch.1" || fail "the manual page is without exit code $code"
done
for key in q Esc; do
  sed -n '/^\.SH KEYS$/,/^\.SH EXIT/p' "$documents/tarnstitch.1" | grep -x "\.B $key" >/dev/null \
    || fail "the manual page is without the key $key"
  grep -qE "^  $key +[a-z]" <<<"$("$program" --help)" || fail "--help is without the key $key"
done
if command -v man >/dev/null && command -v groff >/dev/null; then
  warnings=$(MANWIDTH=80 man --warnings --local-file "$documents/tarnstitch.1" 2>&1 >/dev/null || true)
  [[ -z $warnings ]] || fail "the manual page: $warnings"
fi

# What bash offers behind a command line whose last word is being completed.
# shellcheck source=/dev/null
source "$documents/tarnstitch.bash"
compopt() {
  : # there is no completion going on that it could change
}
offered() {
  COMP_WORDS=("$@")
  COMP_CWORD=$(($# - 1))
  COMPREPLY=()
  _tarnstitch
  printf '%s\n' "${COMPREPLY[@]}" | LC_ALL=C sort | xargs
}
expect_offered() {
  local expected=$1 actual
  shift
  actual=$(offered "$@")
  [[ $actual == "$expected" ]] || fail "bash offers '$actual' instead of '$expected' after: $*"
}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
touch a.jpg b.PNG c.csv d.mp4
mkdir e
expect_offered "auto" tarnstitch --turn a
expect_offered "auto ccw cw none" tarnstitch --turn ""
expect_offered "none" tarnstitch --direction n
expect_offered "up" tarnstitch --direction = u
expect_offered "left" tarnstitch --direction = l
expect_offered "--preview" tarnstitch d.mp4 --pre
expect_offered "a.jpg b.PNG e" tarnstitch -o ""
expect_offered "c.csv e" tarnstitch d.mp4 --frames ""
expect_offered "e" tarnstitch --keep-work ""
expect_offered "d.mp4" tarnstitch d
# shellcheck disable=SC2088 # as it is typed
HOME=$work expect_offered "~/e" tarnstitch -o "~/e"
# shellcheck disable=SC2088
HOME=$work expect_offered "~/a.jpg" tarnstitch -o "~/a"
expect_offered "" tarnstitch --workers ""

if command -v zsh >/dev/null; then
  zsh -n "$documents/_tarnstitch" || fail "zsh cannot read the completion"
fi

echo "passed"
