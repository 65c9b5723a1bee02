#!/bin/sh
# Compiles the shipped example set in a scratch directory and shows the result.
set -eu
tool=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
examples=$(cd "$(dirname "$0")" && pwd)
scratch=$(mktemp -d "${TMPDIR:-/tmp}/quillard-demo-XXXXXX")
cd "$scratch"

echo "== quillard -s system.xml -s update.xml -b quillard.blb -l demo.log -c 4.2"
"$tool" -s "$examples/system.xml" -s "$examples/update.xml" -b quillard.blb -l demo.log -c 4.2
echo "== quillard -v"
"$tool" -v
echo
echo "Blob: $scratch/quillard.blb ($(wc -c < quillard.blb) bytes)"
echo "Log:  $scratch/demo.log"
