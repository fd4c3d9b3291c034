#!/usr/bin/env bash
# Sourced by run.sh and test.sh: configures a preset the one way both use, so
# that neither changes the other's cache and rebuilds what the other built.
#   vc_configure PRESET
# VC_WERROR (default ON, as in CI) turns warnings into errors. ccache, where
# installed, serves compilations that were done before.

vc_configure() {
  local preset=$1
  local args=(-DVC_WERROR="${VC_WERROR:-ON}")
  if command -v ccache > /dev/null; then
    args+=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
  fi
  cmake --preset "$preset" "${args[@]}" > /dev/null
}
