#!/usr/bin/env bash
# Builds the property-tree fuzzer and runs it for SECONDS on a copy of its
# seed corpus (the checked-in corpus is never written to). Exits non-zero on
# any crash, timeout (a hang: one input over 10 s), leak or out-of-memory;
# the input that did it is kept in build/fuzz/artifacts/. Prints one summary
# line; libFuzzer's own output (every new input) goes to build/fuzz/fuzz.log,
# whose tail is shown when the run fails.
#   fuzz/run.sh 300
set -euo pipefail

if [[ $# -ne 1 || ! "$1" =~ ^[0-9]+$ ]]; then
  echo "usage: $0 SECONDS" >&2
  exit 2
fi
SECONDS_TO_RUN=$1

ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
BUILD_DIR=${VC_FUZZ_BUILD_DIR:-$ROOT/build/fuzz}
CXX_COMPILER=${VC_FUZZ_CXX:-clang++}
GENERATOR=()
if command -v ninja > /dev/null; then GENERATOR=(-G Ninja); fi

cmake -S "$ROOT/fuzz" -B "$BUILD_DIR" "${GENERATOR[@]}" -DCMAKE_CXX_COMPILER="$CXX_COMPILER" > /dev/null
cmake --build "$BUILD_DIR" --target PropsFuzzer

WORK=$(mktemp -d)
trap 'rm -rf "$WORK"' EXIT
cp -r "$ROOT/fuzz/corpus/props" "$WORK/corpus"
mkdir -p "$BUILD_DIR/artifacts"

LOG="$BUILD_DIR/fuzz.log"
set +e
ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=0} \
UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1} \
"$BUILD_DIR/PropsFuzzer" "$WORK/corpus" \
  -max_total_time="$SECONDS_TO_RUN" -timeout=10 -rss_limit_mb=2048 -detect_leaks=1 -max_len=8192 \
  -artifact_prefix="$BUILD_DIR/artifacts/" -print_final_stats=1 > "$LOG" 2>&1
RC=$?
set -e

if [[ $RC -ne 0 ]]; then
  tail -n 60 "$LOG" >&2
  echo "PropsFuzzer failed (exit $RC); inputs in $BUILD_DIR/artifacts/, full output in $LOG" >&2
  exit "$RC"
fi
# The final statistics libFuzzer prints as "stat::NAME: VALUE".
stat() { sed -n "s/^stat::$1: *//p" "$LOG" | tail -n 1; }
CORPUS=$(find "$WORK/corpus" -type f | wc -l)
echo "PropsFuzzer: no finding in ${SECONDS_TO_RUN} s: $(stat number_of_executed_units) runs" \
  "($(stat average_exec_per_sec)/s), $(stat new_units_added) new inputs, corpus $CORPUS," \
  "peak $(stat peak_rss_mb) MB; output in $LOG"
