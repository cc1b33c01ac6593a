#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
#
# A document of the repository as a page of the reference, to standard output: it gets the label guide_NAME, links to
# other documents become references to those, and links to files that are no pages become words.
# usage: page.sh DOCUMENT
case $1 in
  docs/api/* | */docs/api/*) exec cat "$1" ;;
esac
name=$(basename "$1" .md)
exec sed -E -e "1s/^(# [^{]*[^{ ])( \{#.*\})?\$/\1 {#guide_$name}/" \
  -e 's/\[([^]]*)\]\(\.\.\/[^)]*\)/\1/g' \
  -e 's/\[([^]]*)\]\(([a-z]+)\.md(#[^)]*)?\)/@ref guide_\2 "\1"/g' \
  -e 's/\[([^]]*)\]\(#[^)]*\)/\1/g' "$1"
