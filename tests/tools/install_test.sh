#!/usr/bin/env bash
# Installs into an empty folder and looks from outside: everything in its place, a program of
# someone else's builds with the library, and what it prints is right.
#   install_test.sh BUILD_DIR PREFIX
set -euo pipefail
build=$1 prefix=$2
rm -rf "$prefix" "$build/client"
cmake --install "$build" --prefix "$prefix" >/dev/null

doc=$prefix/share/doc/nalveo16
for file in "$prefix"/bin/nalveo16{,-plot,-corpus} \
    "$prefix"/share/man/man1/nalveo16{,-plot,-corpus}.1.gz \
    "$prefix"/share/bash-completion/completions/nalveo16{,-plot,-corpus} \
    "$prefix"/share/zsh/site-functions/_nalveo16 \
    "$doc"/{copyright,README.md,docs/formats.md,examples/sample.wav,examples/slurm/corpus.sh}; do
    [[ -s $file ]] || { echo "not installed: $file" >&2; exit 1; }
done

# The client knows nothing but where the package is, and asks for warnings in its headers.
cmake -S "$doc/examples/client" -B "$build/client" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_FLAGS='-Wall -Wextra -Wpedantic -Werror' >/dev/null
cmake --build "$build/client" >/dev/null
said=$("$build/client/analyse")
echo "$said"
awk '
    $1 == "frames" { seen++; if ($2 != 200) bad = 1 }
    $1 == "f0" { seen++; if ($2 < $6 - 0.2 || $2 > $6 + 0.2) bad = 1 }
    $1 == "voiced" { seen++; if ($4 < 3900 || $4 > 5200) bad = 1 }
    $1 == "at" { seen++; if ($7 < $11 - 1 || $7 > $11 + 1) bad = 1 }
    END { exit bad || seen != 6 }' <<<"$said" || { echo "client: wrong values" >&2; exit 1; }

# Every header stands on its own.
(cd "$prefix/include/nalveo" && find . -name '*.h' -exec printf '#include "%s"\n' {} \;) |
    while read -r line; do
        g++ -std=c++20 -Wall -Wextra -Wno-psabi -Werror -fsyntax-only \
            -I "$prefix/include/nalveo" -x c++ - <<<"$line"
    done
