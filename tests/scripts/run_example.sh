#!/usr/bin/env bash
# Runs a script of examples/ as its header says to, from a copy of the
# repository's layout (examples/ and an empty build/), and compares what it
# prints with the expected transcript, as the golden tests do.
#
#   run_example.sh ZENTOR SOURCE_DIR NAME EXPECTED.out
set -eu
zentor=$1
source_dir=$2
name=$3
expected=$4

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp -R "$source_dir/examples" "$work/examples"
mkdir "$work/build"
cd "$work"
bash "$source_dir/tests/golden/run_golden.sh" "$zentor" "examples/$name.zs" "$expected"
