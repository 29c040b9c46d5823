#!/usr/bin/env bash
# Installs the packages into an empty root with dpkg and runs the program there, with nothing but
# the shared libraries that it asks for. As root.
#   scratchroot_test.sh FOLDER_OF_PACKAGES
set -euo pipefail
packages=$(realpath "$1")
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
mkdir -p "$root"/var/lib/dpkg/{info,updates,triggers}
touch "$root"/var/lib/dpkg/{status,available}
# What they depend on is another matter: apt has resolved that in the step before.
# An empty root has no shell, so that the maintainer scripts run outside.
dpkg --root="$root" --force-depends --force-script-chrootless --log=/dev/null --install "$packages"/*.deb 2>/dev/null

ldd "$root/usr/bin/nalveo16" | grep -oE '/[^ ]+' | while read -r library; do
    mkdir -p "$root${library%/*}"
    cp -L "$library" "$root$library"
done
cp examples/sample.wav "$root/sample.wav"
[[ $(chroot "$root" /usr/bin/nalveo16) == *'=== NALVEO16 v'* ]]
said=$(chroot "$root" /usr/bin/nalveo16 sample.wav sample.lf0 sample.mcc sample.mvf)
[[ -z $said && $(wc -c <"$root/sample.mcc") -eq $((558 * 40 * 4)) ]]
dpkg --root="$root" --force-script-chrootless --log=/dev/null --purge \
    nalveo16-tools nalveo16 python3-nalveo libnalveo-dev libnalveo0
left=$(find "$root" -name '*nalveo*')
[[ -z $left ]] || { echo "not removed: $left" >&2; exit 1; }
