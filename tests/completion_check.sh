#!/bin/bash
# The bash completion of quillard: it loads, completes options, and completes
# files for the options that take them. Run with the completion file's path.
set -eu
source "$1"
cd "$(mktemp -d)"
trap 'rm -rf "$PWD"' EXIT
touch system.xml notes.txt old.blb
mkdir profiles.d
complete_words() {
    COMP_WORDS=("$@")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMPREPLY=()
    _quillard
    printf '%s\n' "${COMPREPLY[@]}" | sort | tr '\n' ' '
}
check() {
    local got
    got=$(complete_words "${@:2}")
    if [[ $got != "$1" ]]; then
        echo "completing '${*:2}': got '$got', expected '$1'"
        exit 1
    fi
}
check "--diff " quillard --di
check "--against --diff --from --help --strict --version " quillard --
check "-s -sys " quillard -s
check "profiles.d system.xml " quillard -s ""
check "profiles.d " quillard -p ""
check "old.blb profiles.d " quillard --diff ""
check "old.blb profiles.d " quillard --diff old.blb ""
check "notes.txt old.blb profiles.d system.xml " quillard -l ""
