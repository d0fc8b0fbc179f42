#!/usr/bin/env bash
# The exit status of zentor, as a pipeline sees it: 0, or 1 when the script
# had mistakes, and with --strict also when a module reported an error,
# an exception left a function or an entry point returned a status; 2 for
# bad options.
#
#   exit_status.sh ZENTOR
#
# For a host built for another system, ZENTOR_HOST_RUNNER names the
# emulator that runs it.
set -u
zentor=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

# expect STATUS [INPUT] -- ARGS...: runs zentor with the test module and
# ARGS (and INPUT on its standard input) and checks the status.
expect() {
  local want=$1 input=$2
  shift 3
  local got
  # shellcheck disable=SC2086  # the runner is meant to split into words
  printf '%b' "$input" | ${ZENTOR_HOST_RUNNER:-} "$zentor" --no-json --module libzentor_testmod.so \
    "$@" >"$work/out" 2>&1
  got=$?
  if [ "$got" != "$want" ]; then
    echo "FAIL: status $got, not $want, for: $* (input: $input)"
    sed 's/^/  | /' "$work/out"
    failures=$((failures + 1))
  fi
}

report='Test.Report(2, "Error.Test", "an error")'
expect 0 '' -- -c "$report"
expect 1 '' -- --strict -c "$report"
expect 0 '' -- --strict -c 'Test.Report(1, "Warning.Test", "a warning")'
expect 0 '' -- -c 'Test.Throw("boom")'
expect 1 '' -- --strict -c 'Test.Throw("boom")'
expect 1 '' -- --strict -c 'Test.Status(0x20001)'
expect 0 '' -- --strict -c 'Test.Status(0)' -c 'let x = 1'
# A failure anywhere counts, not only in the last statement.
expect 1 '' -- --strict -c 'Test.Throw(1)' -c 'print 1'
expect 1 '' -- -c 'nope' -c 'print 1'
expect 1 '' -- -c 'for i in 1 .. 2' -c 'print i'
expect 0 '' -- -c 'for i in 1 .. 2' -c 'print i' -c 'end'
# Piped input is a script: a mistake counts, whatever comes after it.
expect 1 'nope\n:quit\n' --
expect 1 "$report\n" -- --strict
expect 0 "$report\n" --
printf '%s\n' "$report" 'print 1' >"$work/script.zs"
expect 1 '' -- --strict "$work/script.zs"
expect 0 '' -- "$work/script.zs"
expect 2 '' -- --no-such-option
expect 2 '' -- "$work/no-such-script.zs"

# Without echoed lines the report names its line.
# shellcheck disable=SC2086
${ZENTOR_HOST_RUNNER:-} "$zentor" --no-json --module libzentor_testmod.so --no-echo \
  -c 'print 1' -c "$report" >"$work/out" 2>&1
if ! grep -q '^! report at line 2: severity 2 (error)' "$work/out"; then
  echo "FAIL: the report does not name line 2:"
  sed 's/^/  | /' "$work/out"
  failures=$((failures + 1))
fi

if [ "$failures" -gt 0 ]; then
  echo "exit status: $failures check(s) failed"
  exit 1
fi
echo "exit status: all checks passed"
