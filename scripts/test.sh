#!/usr/bin/env bash
# The whole test suite, as CI runs it, in stages:
#   default   Linux build (RelWithDebInfo) and its suites, one ctest line per test
#   fuzz      the property parser under libFuzzer (VC_FUZZ_SECONDS, default 60)
#   asan      address and undefined-behaviour sanitizers: build and suites
#   tsan      thread sanitizer: build and suites
#   clang     clang with the thread-safety analysis as errors: build only
#             (VC_CLANG_TESTS=1 runs its suites too)
#   windows   MinGW-w64 build, its suite under Wine
# VC_STAGES picks some of them ("default tsan"); the elapsed seconds of each
# step are printed as it ends and again at the end. VC_WERROR=ON (the
# default) turns warnings into errors, as in CI.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/configure.sh

STAGES=${VC_STAGES:-default fuzz asan tsan clang windows}
STEP_NAMES=()
STEP_SECONDS=()
WINE_PREFIX_DIR=""

summary() {
  local rc=$?
  if [[ -n "$WINE_PREFIX_DIR" ]]; then
    /usr/lib/wine/wineserver -k > /dev/null 2>&1 || true
    rm -rf "$WINE_PREFIX_DIR"
  fi
  echo "== Elapsed seconds per step"
  local i
  for i in "${!STEP_NAMES[@]}"; do
    printf '   %-16s %5d\n' "${STEP_NAMES[$i]}" "${STEP_SECONDS[$i]}"
  done
  printf '   %-16s %5d\n' "total" "$SECONDS"
  if [[ $rc -ne 0 ]]; then echo "== FAILED (exit $rc)"; fi
}
trap summary EXIT

# step NAME COMMAND...: runs one step and records how long it took.
step() {
  local name=$1
  shift
  echo "== $name"
  local t0=$SECONDS
  "$@"
  local dt=$((SECONDS - t0))
  STEP_NAMES+=("$name")
  STEP_SECONDS+=("$dt")
  echo "== $name: ${dt} s"
}

build() {
  vc_configure "$1"
  cmake --build --preset "$1"
}

wine_ctest() {
  WINE_PREFIX_DIR="$(mktemp -d /tmp/vc-wine-XXXXXX)"
  export WINEPREFIX="$WINE_PREFIX_DIR" WINEDEBUG=-all
  /usr/lib/wine/wine64 wineboot -i > /dev/null 2>&1 || true
  ctest --preset windows
}

step deps bash scripts/deps.sh
for stage in $STAGES; do
  case "$stage" in
    default | asan | tsan)
      step "$stage build" build "$stage"
      step "$stage tests" ctest --preset "$stage"
      ;;
    clang)
      step "clang build" build clang
      if [[ "${VC_CLANG_TESTS:-0}" == 1 ]]; then step "clang tests" ctest --preset clang; fi
      ;;
    fuzz)
      step fuzz bash fuzz/run.sh "${VC_FUZZ_SECONDS:-60}"
      ;;
    windows)
      step "windows build" build windows
      step "windows tests" wine_ctest
      ;;
    *)
      echo "unknown stage: $stage" >&2
      exit 2
      ;;
  esac
done
