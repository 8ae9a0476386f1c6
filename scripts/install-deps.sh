#!/usr/bin/env bash
# Installs the Debian packages named on the command line that are not installed yet.
# As root it runs apt-get; otherwise it prints the command to run and fails.
set -euo pipefail
missing=()
for package in "$@"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'install ok installed'; then
        missing+=("$package")
    fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

if [ "$(id -u)" -ne 0 ]; then
    echo "Missing Debian packages: ${missing[*]}" >&2
    echo "Install them with: sudo apt-get install -y ${missing[*]}" >&2
    exit 1
fi
echo "Installing missing Debian packages: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -qq
apt-get install -y -qq "${missing[@]}"
