#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Every file or directory that a document links to, or shows as a picture, exists.
# usage: links_test.sh SOURCE_DIRECTORY
set -euo pipefail

cd "$1"
links=0
broken=0
while IFS= read -r document; do
  while IFS= read -r target; do
    target=${target%%#*}
    case $target in
      '' | http://* | https://* | mailto:*) continue ;;
    esac
    links=$((links + 1))
    if [[ ! -e $(dirname "$document")/$target ]]; then
      echo "$document: $target does not exist"
      broken=$((broken + 1))
    fi
  done < <(grep -oE '\]\([^) ]+\)' "$document" | sed -E 's/^\]\((.*)\)$/\1/')
done < <(find . \( -path ./build -o -path ./out -o -path ./.git \) -prune -o -name '*.md' -print)
echo "$links links, $broken broken"
((links > 0 && broken == 0))
