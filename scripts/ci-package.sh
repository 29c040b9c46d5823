#!/usr/bin/env bash
# Checks what people touch, on a machine with apt: the companion tools, the installed tree, the
# packages, the documentation. Part of .ci/run.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

step() { printf '\n--- %s (at %d s)\n' "$*" "$SECONDS"; }

step tools
scripts/setup.sh people

step scripts and spelling
shellcheck scripts/*.sh packaging/postinst packaging/prerm examples/slurm/*.sh tests/tools/*.sh
bash -n completions/nalveo16{,-plot,-corpus}
zsh -n completions/_nalveo16
mandoc -T lint -W warning man/*.1
codespell README.md CONTRIBUTING.md CHANGELOG.md docs man packaging tools tests/tools examples scripts completions
scripts/spelling.sh

step companions, installed tree and documentation
cmake --preset package -DNALVEO_WERROR=ON -DNALVEO_TOOLTESTS=ON
cmake --build --preset package --parallel "$(nproc)"
ctest --preset package --parallel "$(nproc)"

step packages
ours=(nalveo16-tools nalveo16 python3-nalveo libnalveo0)
installed=$(dpkg-query -W -f '${db:Status-Status}' nalveo16 2>/dev/null || true)
scripts/install.sh
# There is no bug report that the first upload could close, since nothing is uploaded. CPack adds
# calls of ldconfig to the trigger that makes them superfluous.
lintian --fail-on error,warning \
    --suppress-tags initial-upload-closes-no-bugs,maintscript-calls-ldconfig \
    --allow-root build/package/debian/*.deb
nalveo16-plot examples/sample.wav -o sample.png
mv sample.png build/package/
if [[ $installed != installed ]]; then
    if [[ $(id -u) -eq 0 ]]; then dpkg --purge "${ours[@]}"; else sudo dpkg --purge "${ours[@]}"; fi
fi

step packages in a scratch root
tests/tools/scratchroot_test.sh build/package/debian

step the program by hand
cmake --preset release
cmake --build --preset release --target nalveo16
build/release/nalveo16
