#!/usr/bin/env bash
# Runs a tool command that must fail, and checks that what it printed
# matches a pattern (grep -E): a failure has to say what went wrong.
# Usage: expect_failure.sh PATTERN COMMAND [ARG...]
pattern="$1"; shift
out="$("$@" 2>&1)"
rc=$?
printf '%s\n' "$out"
if [ "$rc" -eq 0 ]; then
  echo "expect_failure: the command succeeded" >&2
  exit 1
fi
if ! printf '%s\n' "$out" | grep -Eq -- "$pattern"; then
  echo "expect_failure: no line matches '$pattern'" >&2
  exit 1
fi
