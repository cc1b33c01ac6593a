#!/bin/sh
# SPDX-License-Identifier: Apache-2.0
#
# Ends a process many times at one kind of moment, in each way, and stops at the first end that is not clean.
#
#     run_many.sh PROGRAM COUNT MOMENT
#
# COUNT is multiplied by TARN_TEST_SCALE (1 when not set). Each run has a seed of its own, counted up from
# TARN_TEST_SEED or, when that is not set, from the clock.
set -u
program=$1
moment=$3
count=$(awk -v count="$2" -v scale="${TARN_TEST_SCALE:-1}" 'BEGIN { n = int(count * scale + 0.5); print n < 3 ? 3 : n }')
seed=${TARN_TEST_SEED:-$(date +%s)}

i=0
while [ "$i" -lt "$count" ]; do
    case $((i % 3)) in
    0) way="return" ;;
    1) way="exit" ;;
    2) way=thread ;;
    esac
    run_seed=$(((seed + i) % 1000000000))
    case $moment in
    anywhere | beside_a_feeder) set -- "$way" "$moment" "$run_seed" ;;
    *) set -- "$way" "$moment" $((2 + i / 3 % 3)) "$run_seed" ;;
    esac
    "$program" "$@"
    status=$?
    if [ "$status" -ne 0 ]; then
        echo "run $i ended with status $status; again with:"
        echo "${PROCESS_END_EARLY:+PROCESS_END_EARLY=1 }$program $*"
        exit 1
    fi
    i=$((i + 1))
done
echo "$count clean ends, seeds from $seed"
