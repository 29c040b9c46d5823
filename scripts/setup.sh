#!/usr/bin/env bash
# Installs what the build needs, on Debian 12 or later and its relatives.
#
#   scripts/setup.sh        compiler, CMake, Ninja, GoogleTest: enough for the program and its tests
#   scripts/setup.sh full   also clang, clang-format, clang-tidy, valgrind, QEMU's user emulation,
#                           a compiler for aarch64 and Google Benchmark: what .ci/run and the
#                           presets clang, bench and fuzz need
#   scripts/setup.sh package  what building the Debian packages needs
#   scripts/setup.sh people   also what the companion tools need, and what they, the packages and
#                           the documentation are checked with: scripts/ci-package.sh
#
# Asks nothing, and leaves apt alone when all is there, so that it works without a network then.
set -euo pipefail

packages=(g++ cmake ninja-build libgtest-dev)
people=(parallel sox libsox-fmt-base python3 python3-numpy python3-matplotlib python3-pytest
    python3-hypothesis mypy python3-pip python3-setuptools python3-wheel pkg-config man-db lintian sptk
    octave shellcheck codespell aspell aspell-en mandoc zsh bash-completion munge slurmctld slurmd
    slurm-client python3-distributed chromium chromium-driver)
case "${1-}" in
'') ;;
full)
    packages+=(clang clang-format clang-tidy valgrind qemu-user libbenchmark-dev
        g++-aarch64-linux-gnu)
    ;;
package) packages=(g++ cmake ninja-build dpkg-dev file) ;;
people) packages+=(dpkg-dev file "${people[@]}") ;;
*)
    echo "usage: $0 [full | package | people]" >&2
    exit 2
    ;;
esac

if ! command -v apt-get >/dev/null || ! command -v dpkg-query >/dev/null; then
    echo "setup: no apt here; install a C++20 compiler, CMake 3.25, Ninja and GoogleTest." >&2
    exit 0
fi

missing() {
    local package
    for package in "$@"; do
        if [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) != installed ]]; then
            echo "$package"
        fi
    done
}

# Runs a command as root; what it prints is shown only when it fails.
asroot() {
    local prefix=() output
    if [[ $(id -u) -ne 0 ]]; then
        command -v sudo >/dev/null || {
            echo "setup: run as root, or install sudo." >&2
            exit 1
        }
        prefix=(sudo)
    fi
    prefix+=(env DEBIAN_FRONTEND=noninteractive)
    output=$("${prefix[@]}" "$@" 2>&1 </dev/null) || {
        printf '%s\n' "$output" >&2
        echo "setup: failed: $*" >&2
        return 1
    }
}

ensure() {
    local wanted
    read -r -a wanted <<<"$(missing "$@" | tr '\n' ' ')"
    if [[ ${#wanted[@]} -eq 0 ]]; then return; fi
    echo "setup: installing ${wanted[*]}"
    # A list that cannot be renewed is not yet a failure: the old one may do.
    asroot apt-get update || true
    asroot apt-get -o DPkg::Lock::Timeout=300 install -y --no-install-recommends "${wanted[@]}"
}

ensure "${packages[@]}"
if [[ ${1-} == full ]]; then
    # The sanitizer and fuzzer runtimes of clang are a package of their own, one per version.
    version=$(clang -dumpversion)
    ensure "libclang-rt-${version%%.*}-dev"
fi
