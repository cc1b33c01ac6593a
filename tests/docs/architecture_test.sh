#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The document on the architecture and its figure name files that exist, every source file of the library among them,
# and the figure is drawn from the source that lies beside it.
# usage: architecture_test.sh SOURCE_DIRECTORY
set -euo pipefail

cd "$1"
wrong=0
for document in docs/architecture.md docs/images/architecture.dot; do
  while IFS= read -r name; do
    [[ -e TarnStitchSDK/$name || -e TarnStitchSDK/internal/$name ]] || { echo "$document names $name, which does not exist" && wrong=1; }
  done < <(grep -oE '\b[a-z_0-9]+\.(cpp|h)\b' "$document" | sort -u)
  for source in TarnStitchSDK/*.cpp; do
    name=$(basename "$source")
    grep -qE "(^|[^a-z_0-9])${name//./\\.}" "$document" || { echo "$document does not name $name" && wrong=1; }
  done
done
digest=$(sha256sum docs/images/architecture.dot | cut -d ' ' -f 1)
grep -q "sha256 $digest" docs/images/architecture.svg || {
  echo "docs/images/architecture.svg is not drawn from architecture.dot as it is now: run scripts/docs.sh --figures"
  wrong=1
}
((wrong == 0))
