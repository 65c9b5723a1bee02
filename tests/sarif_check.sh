#!/bin/sh
# Runs quillard with --diagnostics-format=sarif on broken inputs and has the
# SARIF multitool (from the npm registry) validate every log against the SARIF
# 2.1.0 schema and its rules. Exit 77 (skipped) when the multitool is missing.
set -eu
tool=$1
data=$2
multitool=${SARIF_MULTITOOL:-$(command -v sarif-multitool || true)}
[ -n "$multitool" ] && [ -x "$multitool" ] || { echo "sarif-multitool is not installed"; exit 77; }
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
cd "$scratch"
printf '<?xml version="1.0"?>\n<customisations Format="1">\n\t<a><b></a>\n' > broken.xml
"$tool" --diagnostics-format=sarif -s "$data/golden/inputs/bad_values.xml" -b x.blb 2> values.sarif || true
"$tool" --diagnostics-format=sarif -s broken.xml 2> broken.sarif || true
"$tool" --diagnostics-format=sarif --stirct 2> option.sarif || true
"$tool" --diagnostics-format=sarif -s "$data/golden/inputs/bad_values.xml" -b x.blb -p no-such-dir 2> none.sarif || true
for log in values broken option none; do
    grep -q '"version":"2.1.0"' "$log.sarif" || { echo "$log.sarif is no SARIF log"; cat "$log.sarif"; exit 1; }
    out=$("$multitool" validate "$log.sarif" -o "$log.result.sarif" 2>&1) || { echo "$out"; exit 1; }
    if echo "$out" | grep -q ': error '; then
        echo "$out"
        exit 1
    fi
done
grep -q '"startLine":3' broken.sarif || { echo "the syntax error has no line"; cat broken.sarif; exit 1; }
echo "every SARIF log validates"
