#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The samples in docs/android.md are those of bindings/java/sample to the letter, and the one for a desktop is short.
# usage: document_test.sh SOURCE_DIRECTORY
set -euo pipefail

cd "$1"

# shown MARK: the code block behind a comment in the document.
shown() {
  awk -v mark="<!-- $1 -->" '$0 == mark { wanted = 1; next }
    wanted && /^```java$/ { inside = 1; next }
    inside && /^```$/ { exit }
    inside' docs/android.md
}

# compare MARK FILE
compare() {
  echo "$2"
  [[ -n $(shown "$1") ]] || { echo "docs/android.md does not show it"; exit 1; }
  diff <(shown "$1") "$2"
}

compare sample bindings/java/sample/StitchDirectory.java
compare "app sample" bindings/java/sample/android/com/example/panorama/PanoramaRecorder.java
lines=$(wc -l <bindings/java/sample/StitchDirectory.java)
echo "$lines lines"
((lines <= 60))
