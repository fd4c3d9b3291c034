#!/usr/bin/env bash
# The whole test suite: Linux first, then the Windows build under Wine.
# VC_WERROR=ON (the default here) turns warnings into errors, as in CI.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/deps.sh
WERROR="${VC_WERROR:-ON}"

echo "== Linux: build and test"
cmake --preset default -DVC_WERROR="$WERROR" >/dev/null
cmake --build --preset default
ctest --preset default

echo "== Fuzzing the property parser (${VC_FUZZ_SECONDS:-60} s)"
bash fuzz/run.sh "${VC_FUZZ_SECONDS:-60}"

echo "== Windows (MinGW-w64) build, tests under Wine"
cmake --preset windows -DVC_WERROR="$WERROR" >/dev/null
cmake --build --preset windows
WINEPREFIX="$(mktemp -d /tmp/vc-wine-XXXXXX)"
export WINEPREFIX WINEDEBUG=-all
trap '/usr/lib/wine/wineserver -k >/dev/null 2>&1 || true; rm -rf "$WINEPREFIX"' EXIT
/usr/lib/wine/wine64 wineboot -i >/dev/null 2>&1 || true
ctest --preset windows
