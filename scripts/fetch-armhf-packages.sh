#!/usr/bin/env bash
# Usage: fetch-armhf-packages.sh DIR PACKAGE...
# Downloads the armhf builds of the named Debian packages and unpacks them under DIR/root, for
# the cross build to 32-bit ARM. Nothing is installed on the build machine: cxxtools' packages
# are not co-installable for two architectures, so installing them for armhf would remove the
# build machine's own copy. apt works on package lists of its own under DIR/apt, so the machine's
# package state and its architecture list stay as they are.
# Does nothing when DIR/root already holds exactly these packages.
set -euo pipefail
dir=$(realpath -m "$1")
shift
root=$dir/root
stamp=$root/.packages
[ -f "$stamp" ] && [ "$(cat "$stamp")" = "$*" ] && exit 0

state=$dir/apt
rm -rf "$root" "$state/debs"
mkdir -p "$state/lists/partial" "$state/cache/archives/partial" "$state/debs" "$root"
: >"$state/status"
apt_options=(
    -o "APT::Architecture=armhf" -o "APT::Architectures::=armhf"
    -o "Dir::State::Lists=$state/lists" -o "Dir::State::status=$state/status"
    -o "Dir::Cache=$state/cache" -o "APT::Sandbox::User=$(id -un)"
)
echo "Fetching armhf packages: $*"
apt-get "${apt_options[@]}" update -qq ||
    echo "Some armhf package lists failed to download; going on with the others." >&2
(cd "$state/debs" && apt-get "${apt_options[@]}" download "$@")
for deb in "$state/debs"/*.deb; do
    dpkg-deb -x "$deb" "$root"
done
echo "$*" >"$stamp"
