#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Builds and runs the benchmarks, after installing what is missing, and writes their tables into out/benchmarks/,
# one .md and .csv per program, and all of them with the machine's description into out/benchmarks.md.
# Arguments: the programs to run (kernel_benchmark, …), by default all; those that begin with "--" go to each of them,
# but --figures, which draws docs/images/frame-time.svg and turn-time.svg anew from the tables.
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

options=()
programs=()
figures=false
for argument in "$@"; do
  if [[ $argument == --figures ]]; then
    figures=true
    benchmark_packages+=(gnuplot-nox)
  elif [[ $argument == --* ]]; then
    options+=("$argument")
  else
    programs+=("$argument")
  fi
done

need_packages "${build_packages[@]}" "${test_packages[@]}" "${benchmark_packages[@]}"

say "Building the benchmarks"
configure bench --log-level=WARNING
build bench --target tarn_benchmarks
if ((${#programs[@]} == 0)); then
  mapfile -t programs <build/bench/benchmarks/programs.txt
fi

# machine: what the figures depend on, as Markdown.
machine() {
  local model cores memory
  model=$(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo 2>/dev/null | head -n 1)
  cores=$(nproc 2>/dev/null || echo '?')
  memory=$(sed -n 's/^MemTotal:[[:space:]]*\([0-9]*\) kB/\1/p' /proc/meminfo 2>/dev/null)
  printf -- '- %s, %s cores, %s MB\n' "${model:-$(uname -m)}" "$cores" "$((${memory:-0} / 1024))"
  printf -- '- %s, %s\n' "$(uname -sr)" "$(c++ --version | head -n 1)"
  printf -- '- OpenCV %s\n' "$(sed -n 's/^set(OpenCV_VERSION \([0-9.]*\))$/\1/p' \
    "$(sed -n 's/^OpenCV_DIR:PATH=//p' build/bench/CMakeCache.txt)/OpenCVConfig-version.cmake")"
  printf -- '- load before the run: %s\n' "$(cut -d ' ' -f 1-3 /proc/loadavg 2>/dev/null || echo '?')"
}

mkdir -p out/benchmarks
summary=out/benchmarks.md
{
  printf '# Benchmarks, %s\n\n' "$(date -u +%Y-%m-%d)"
  machine
} >"$summary"

failed=()
for program in "${programs[@]}"; do
  say "Running $program"
  if ! build/bench/benchmarks/"$program" --table="out/benchmarks/$program" "${options[@]}"; then
    failed+=("$program")
  fi
  if [[ -e out/benchmarks/$program.md ]]; then
    { printf '\n## %s\n\n' "$program" && cat "out/benchmarks/$program.md"; } >>"$summary"
  fi
done

if $figures; then
  gnuplot -e "tables='out/benchmarks'; images='docs/images'" benchmarks/figures.gnuplot
  say "Figures: docs/images/frame-time.svg, docs/images/turn-time.svg"
fi

say "Tables: $root/$summary"
((${#failed[@]} == 0)) || fail "these failed: ${failed[*]}"
