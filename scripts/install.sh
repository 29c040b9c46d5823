#!/usr/bin/env bash
# Builds the Debian package nalveo16 and installs it with apt, which also brings what the companion
# tools need. `scripts/install.sh development` installs libnalveo-dev, too.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/setup.sh package
cmake --preset package >/dev/null
cmake --build --preset package --parallel "$(nproc)"
rm -rf build/package/debian
# CPack writes what it does to its standard error, too.
(cd build/package && cpack -B debian >cpack.log 2>&1) || {
    cat build/package/cpack.log >&2
    exit 1
}

packages=(./build/package/debian/nalveo16_*.deb)
if [[ ${1-} == development ]]; then packages+=(./build/package/debian/libnalveo-dev_*.deb); fi
asroot=()
if [[ $(id -u) -ne 0 ]]; then asroot=(sudo); fi
"${asroot[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=300 \
    install -y --reinstall "${packages[@]}"
