#!/bin/sh
# Runs quillard on the shipped example in a scratch directory.
set -eu
tool=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
"$tool" -hiddenhelp
