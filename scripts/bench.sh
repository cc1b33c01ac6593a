#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Builds and runs the benchmarks, after installing what is missing, and writes their tables into out/benchmarks/,
# one .md, with the machine's description, and one .csv per program, and all that lie there into out/benchmarks.md.
# Arguments: the programs to run (kernel_benchmark, …), by default all; those that begin with "--" go to each of them,
# but --figures, which draws docs/images/frame-time.svg and turn-time.svg anew from the tables, and --build-only.
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"

options=()
programs=()
figures=false
build_only=false
for argument in "$@"; do
  if [[ $argument == --figures ]]; then
    figures=true
    benchmark_packages+=(gnuplot-nox)
  elif [[ $argument == --build-only ]]; then
    build_only=true
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
if $build_only; then
  exit
fi
mapfile -t all_programs <build/bench/benchmarks/programs.txt
if ((${#programs[@]} == 0)); then
  programs=("${all_programs[@]}")
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
failed=()
for program in "${programs[@]}"; do
  say "Running $program"
  description=$(machine)
  new=out/benchmarks/new
  rm -f $new.*
  if ! build/bench/benchmarks/"$program" --table=$new "${options[@]}"; then
    failed+=("$program")
  fi
  if [[ -e $new.md ]]; then
    printf '## %s, %s\n\n%s\n\n%s\n' "$program" "$(date -u +%Y-%m-%d)" "$description" "$(cat $new.md)" \
      >out/benchmarks/"$program".md
    mv $new.csv out/benchmarks/"$program".csv
    rm $new.md
  fi
done

summary=out/benchmarks.md
printf '# Benchmarks\n' >"$summary"
for program in "${all_programs[@]}"; do
  if [[ -e out/benchmarks/$program.md ]]; then
    { echo && cat "out/benchmarks/$program.md"; } >>"$summary"
  fi
done
say "Tables: $root/$summary"
((${#failed[@]} == 0)) || fail "these failed: ${failed[*]}"

if $figures; then
  for program in live_path_benchmark worker_benchmark; do
    [[ -e out/benchmarks/$program.csv ]] || fail "the figures need the table of $program; run it, too."
  done
  gnuplot -e "tables='out/benchmarks'; images='docs/images'" benchmarks/figures.gnuplot
  say "Figures: docs/images/frame-time.svg, docs/images/turn-time.svg"
fi
