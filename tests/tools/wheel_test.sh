#!/usr/bin/env bash
# pip makes a wheel of a clone and installs it into an empty folder, where the package brings its own
# library and needs nothing else but numpy.
#   wheel_test.sh FOLDER
set -euo pipefail
folder=$1
source=$(realpath "$(dirname "${BASH_SOURCE[0]}")/../..")
rm -rf "$folder"
mkdir -p "$folder/clone"
(cd "$source" && cp -r CMakeLists.txt pyproject.toml setup.py src include python packaging man docs \
    completions examples tools CHANGELOG.md README.md "$folder/clone")
rm -f "$folder"/clone/python/nalveo/libnalveo.so*

cd "$folder"
pip() { /usr/bin/python3 -m pip --quiet "$@"; }
(cd clone && pip install --no-build-isolation . --no-deps --no-index --target ../site)
grep -q '^Tag: py3-none-linux_' site/nalveo-*.dist-info/WHEEL
[[ -f site/nalveo/py.typed ]]

PYTHONPATH=site /usr/bin/python3 - <<'EOF'
import importlib.metadata
import nalveo

assert importlib.metadata.version("nalveo") == nalveo.__version__
with open("/proc/self/maps", encoding="utf-8") as maps:
    loaded = {line.split()[-1] for line in maps if "libnalveo" in line}
assert len(loaded) == 1 and "/site/nalveo/libnalveo.so.0" in loaded.pop(), loaded
assert nalveo.analyze([0.0] * 1600, 16000).mcep.shape == (20, 40)
EOF
