#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Builds and runs the benchmarks, after installing what is missing, and writes their tables into out/benchmarks/,
# one .md, with the machine's description, and one .csv per program, and all that lie there into out/benchmarks.md.
# Arguments: the programs to run (kernel_benchmark, …), by default all; --figures, which draws docs/images/frame-time.svg
# and turn-time.svg anew from the tables; --build-only. All others that begin with "--" go to each program
# (--benchmark_filter=…): what comes out is another table, which goes to out/benchmarks-trial/ and
# out/benchmarks-trial.md, and leaves those of whole runs as they are.
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

tables=out/benchmarks
if ((${#options[@]} > 0)); then
  ! $figures || fail "the figures are of whole runs: --figures goes without ${options[*]}"
  tables=out/benchmarks-trial
fi

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

# Only trials of this run: they have nothing to do with earlier ones.
((${#options[@]} == 0)) || rm -rf "$tables"
mkdir -p "$tables"
failed=()
idle=()
for program in "${programs[@]}"; do
  say "Running $program"
  description=$(machine)
  new=$tables/new
  rm -f "$new".*
  status=0
  build/bench/benchmarks/"$program" --table="$new" "${options[@]}" || status=$?
  if ((status == 2)); then
    idle+=("$program")
  elif ((status != 0)); then
    failed+=("$program")
  fi
  if [[ -e $new.md ]]; then
    printf '## %s, %s\n\n%s\n\n%s\n' "$program" "$(date -u +%Y-%m-%d)" "$description" "$(cat "$new".md)" \
      >"$tables/$program.md"
    mv "$new".csv "$tables/$program.csv"
    rm "$new".md
  fi
done

summary=$tables.md
printf '# Benchmarks\n' >"$summary"
for program in "${all_programs[@]}"; do
  if [[ -e $tables/$program.md ]]; then
    { echo && cat "$tables/$program.md"; } >>"$summary"
  fi
done
say "Tables: $root/$summary"
((${#failed[@]} == 0)) || fail "these failed: ${failed[*]}"
((${#idle[@]} < ${#programs[@]})) || fail "the options leave nothing to run in ${idle[*]}"

if $figures; then
  for program in live_path_benchmark worker_benchmark; do
    [[ -e $tables/$program.csv ]] || fail "the figures need the table of $program; run it, too."
  done
  gnuplot -e "tables='$tables'; images='docs/images'" benchmarks/figures.gnuplot
  say "Figures: docs/images/frame-time.svg, docs/images/turn-time.svg"
fi
