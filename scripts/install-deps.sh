#!/bin/sh
# Installs the Debian packages the tool's build needs, and the ones named as
# arguments (what the tests or the package build need), when some are missing.
# As root it runs apt-get itself; otherwise it prints the one line to run and fails.
set -eu

packages="cmake g++ make pkg-config libmxml-dev $*"
missing=""
for package in $packages; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "ok installed"; then
        missing="$missing $package"
    fi
done
[ -z "$missing" ] && exit 0

if [ "$(id -u)" -ne 0 ]; then
    echo "Missing packages. Please run as root:"
    echo "    apt-get update && apt-get install -y$missing"
    exit 1
fi
echo "Installing:$missing"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
# shellcheck disable=SC2086
apt-get install -y -qq $missing
