#!/usr/bin/env bash
# Builds the Debian packages and installs them with apt.
#
#   scripts/install.sh              everything: programs, library, `import nalveo` in Debian's python3,
#                                   tools, and what they need (matplotlib alone brings 600 MB)
#   scripts/install.sh small        programs, library and manual pages, under 5 MB
#
# With `development` behind it, libnalveo-dev, too.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

names=(nalveo16 libnalveo0 python3-nalveo nalveo16-tools)
for word in "$@"; do
    case $word in
    small) names=(nalveo16 libnalveo0) ;;
    development) ;;
    *)
        echo "usage: $0 [small] [development]" >&2
        exit 2
        ;;
    esac
done
[[ " $* " != *' development '* ]] || names+=(libnalveo-dev)

scripts/setup.sh package
cmake --preset package >/dev/null
cmake --build --preset package --parallel "$(nproc)"
rm -rf build/package/debian
# CPack writes what it does to its standard error, too.
(cd build/package && cpack -B debian >cpack.log 2>&1) || {
    cat build/package/cpack.log >&2
    exit 1
}

packages=()
for name in "${names[@]}"; do packages+=(./build/package/debian/"$name"_*.deb); done
asroot=()
if [[ $(id -u) -ne 0 ]]; then asroot=(sudo); fi
"${asroot[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=300 \
    install -y --reinstall "${packages[@]}"

if [[ " ${names[*]} " == *' python3-nalveo '* ]]; then
    # Debian's own, whatever other python3 is first on the path.
    version=$(/usr/bin/python3 -c "import nalveo; print(nalveo.__version__)")
    echo "nalveo $version: nalveo16 on the command line, import nalveo in /usr/bin/python3"
fi
