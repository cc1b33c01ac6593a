#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Some short sweeps of the table of success, rendered from the repository's own material, still end as the table says,
# whoever stitches them; and the document shows the table that lies beside the script.
# usage: success_table_test.sh PROGRAM SOURCE_DIRECTORY
set -euo pipefail

program=$1
source=$2
python=python3
[[ ! -x /usr/bin/python3 ]] || python=/usr/bin/python3 # the one that the packages are for
if ! "$python" -c 'import cv2, numpy' 2>/dev/null || ! command -v ffmpeg >/dev/null; then
  echo "skipped: Python's OpenCV or ffmpeg is missing"
  exit 77
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export PYTHONDONTWRITEBYTECODE=1

"$python" "$source/benchmarks/success/success.py" --program "$program" --samples "$source/samples" --out "$work" \
  --check "$source/benchmarks/success/table.json"

# A row for each sweep, with the words of the table.
"$python" - "$source" <<'END'
import json
import pathlib
import sys

source = pathlib.Path(sys.argv[1])
sys.path.insert(0, str(source / "benchmarks/success"))
import pages
import success

table = json.loads((source / "benchmarks/success/table.json").read_text())["sweeps"]
document = (source / "docs/success.md").read_text()
if pages.as_markdown(table, success.BY) not in document:
    sys.exit("docs/success.md does not show benchmarks/success/table.json: run scripts/success.sh --write")
END
