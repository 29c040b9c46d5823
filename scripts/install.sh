#!/usr/bin/env bash
# Builds the Debian packages nalveo16, libnalveo0 and python3-nalveo and installs them with apt, which
# also brings what the companion tools need. `scripts/install.sh development` installs libnalveo-dev,
# too. Afterwards there are the program nalveo16 and `import nalveo` in Debian's python3.
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

names=(nalveo16 libnalveo0 python3-nalveo)
if [[ ${1-} == development ]]; then names+=(libnalveo-dev); fi
packages=()
for name in "${names[@]}"; do packages+=(./build/package/debian/"$name"_*.deb); done
asroot=()
if [[ $(id -u) -ne 0 ]]; then asroot=(sudo); fi
"${asroot[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=300 \
    install -y --reinstall "${packages[@]}"

# Debian's own, whatever other python3 is first on the path.
version=$(/usr/bin/python3 -c "import nalveo; print(nalveo.__version__)")
echo "nalveo $version: nalveo16 on the command line, import nalveo in /usr/bin/python3"
