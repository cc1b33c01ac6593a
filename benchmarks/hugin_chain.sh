#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# What Hugin's tools make of a directory's frames (0000.bmp, 0001.bmp, …), called as their manual has it for a panorama
# without a look at it: DIRECTORY/picture.tif, from DIRECTORY/all.pto. Exit code 77 where they are not installed
# (Debian's packages hugin-tools and enblend); without an argument nothing else is found out.
# usage: hugin_chain.sh [DIRECTORY]
set -euo pipefail
for tool in pto_gen cpfind cpclean autooptimiser pano_modify nona pano_trafo enblend; do
  command -v "$tool" >/dev/null || exit 77
done
(($# > 0)) || exit 0

cd "$1"
# Frames of a video do not tell their field of view; it is found by the optimiser, from a usual one.
pto_gen --fov=50 --output=all.pto ./*.bmp
cpfind --multirow --output=all.pto all.pto
cpclean --output=all.pto all.pto
autooptimiser -a -m -l -s -o all.pto all.pto
pano_modify --canvas=AUTO --crop=AUTO --output=all.pto all.pto
nona -m TIFF_m -o part all.pto
enblend --output=picture.tif part*.tif
