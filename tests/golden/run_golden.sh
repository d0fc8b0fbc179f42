#!/usr/bin/env bash
# Runs one golden script through the reference host and compares what it
# prints with the expected output beside it.
#
#   run_golden.sh ZENTOR SCRIPT.zs [EXPECTED.out]
#
# A line "# args: ..." in the script gives extra host options (for example
# "--no-json --module libzentor_testmod.so"). With UPDATE_GOLDEN=1 the
# expected output is rewritten instead of compared.
#
# For a host built for another system, ZENTOR_HOST_RUNNER names the emulator
# that runs it (e.g. "qemu-aarch64 -L /usr/aarch64-linux-gnu"). Module files
# are named as their system names them (libzentor_json.dll on Windows); the
# expected outputs show the Linux names, so other names are shown as those
# before comparing. Everything else must match byte for byte.
set -u
zentor=$1
script=$2
expected=${3:-${script%.zs}.out}

args=$(sed -n 's/^# args: *//p' "$script" | head -n 1)
actual=$(mktemp)
trap 'rm -f "$actual"' EXIT

# shellcheck disable=SC2086  # the runner and options are meant to split into words
${ZENTOR_HOST_RUNNER:-} "$zentor" $args "$script" >"$actual" 2>&1 </dev/null
status=$?
sed -i -E 's/(libzentor_[a-z_]+)\.(dll|dylib)/\1.so/g' "$actual"
# Script and module errors are part of the expected output; a crash is not.
if [ "$status" -gt 1 ]; then
  cat "$actual"
  echo "golden: zentor exited with status $status on $script" >&2
  exit 1
fi

if [ "${UPDATE_GOLDEN:-0}" = 1 ]; then
  cp "$actual" "$expected"
  echo "golden: wrote $expected"
  exit 0
fi

if ! diff -u --label "expected $(basename "$expected")" --label actual "$expected" "$actual"; then
  echo "golden: output of $script differs (rerun with UPDATE_GOLDEN=1 to accept it)" >&2
  exit 1
fi
