#!/usr/bin/env bash
# Sets up, builds the release preset and runs all tests. Arguments go to CMake, for instance
# scripts/test.sh -DNALVEO_WERROR=ON
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

scripts/setup.sh
cmake --preset release "$@"
cmake --build --preset release --parallel "$(nproc)"
ctest --preset release --parallel "$(nproc)"
