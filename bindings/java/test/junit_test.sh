#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# Runs the tests of the Java binding while the virtual machine checks every use of its native interface; fails if
# a test does, or if the machine has something to say.
# usage: junit_test.sh JAVA TESTS_JAR OUTPUT_DIRECTORY JAVA_OPTION…
set -euo pipefail

java=$1
tests=$2
output=$3
shift 3

# The report goes to standard error, as what the machine says does; the library's log to standard output.
status=0
"$java" -Xcheck:jni -XX:+DisplayVMOutputToStderr "$@" org.tarnstitch.RunTests \
  --scan-classpath "$tests" --fail-if-no-tests --disable-banner --disable-ansi-colors --details tree \
  2>&1 >"$output/junit-library-log.txt" | tee "$output/junit.txt" >&2 || status=$?
if ((status != 0)); then
  exit "$status"
fi
if grep -E '^(WARNING|FATAL ERROR)|JNI call made|in native method' "$output/junit.txt"; then
  echo "The virtual machine found fault with the native half."
  exit 1
fi
echo "-Xcheck:jni: nothing found"
