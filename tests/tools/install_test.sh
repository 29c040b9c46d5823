#!/usr/bin/env bash
# Installs into an empty folder and looks from outside: everything in its place, programs of someone
# else's in C and C++ build with the library, and what they print is right.
#   install_test.sh BUILD_DIR PREFIX
set -euo pipefail
build=$1 prefix=$2
rm -rf "$prefix" "$build/client"
cmake --install "$build" --prefix "$prefix" >/dev/null

doc=$prefix/share/doc/nalveo16
for file in "$prefix"/bin/nalveo16{,-synth,-compare,-plot,-corpus} \
    "$prefix"/share/man/man1/nalveo16{,-synth,-compare,-plot,-corpus}.1.gz \
    "$prefix"/share/bash-completion/completions/nalveo16{,-synth,-compare,-plot,-corpus} \
    "$prefix"/share/zsh/site-functions/_nalveo16 \
    "$doc"/{copyright,README.md,docs/formats.md,examples/sample.wav,examples/slurm/corpus.sh}; do
    [[ -s $file ]] || { echo "not installed: $file" >&2; exit 1; }
done

# The clients know nothing but where the package is, and ask for warnings in its headers. Names that
# the library uses inside are free for them.
cp -r "$doc/examples/client" "$build/client"
cat >>"$build/client/analyse.cpp" <<'EOF'
struct vector {};
struct phasor {};
double power(double, double) { return 1.0; }
double sine(double) { return 2.0; }
double logarithm(double) { return 3.0; }
EOF
warnings='-Wall -Wextra -Wpedantic -Werror'
cmake -S "$build/client" -B "$build/client/build" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_C_FLAGS="$warnings" -DCMAKE_CXX_FLAGS="$warnings" >/dev/null
cmake --build "$build/client/build" >/dev/null

# A line of a client each for frames, f0, maximum voiced frequency and three levels.
checkclient() {
    local said
    said=$("$@")
    echo "$said"
    awk '
        $1 == "frames" { seen++; if ($2 != 200) bad = 1 }
        $1 == "f0" { seen++; if ($2 < $6 - 0.2 || $2 > $6 + 0.2) bad = 1 }
        $1 == "voiced" { seen++; if ($4 < 3900 || $4 > 5200) bad = 1 }
        $1 == "at" { seen++; if ($7 < $11 - 1 || $7 > $11 + 1) bad = 1 }
        END { exit bad || seen != 6 }' <<<"$said" || { echo "$*: wrong values" >&2; exit 1; }
}
checkclient "$build/client/build/analyse_c"
checkclient "$build/client/build/analyse_cpp"

# The same by pkg-config, from a tree that has moved, and as a program that needs no library.
library=$(find "$prefix/lib" -name libnalveo.so)
libraries=${library%/*}
moved=$build/client/moved
cp -r "$prefix" "$moved"
libraries=${libraries/#$prefix/$moved}
export PKG_CONFIG_PATH=$libraries/pkgconfig
read -r -a flags <<<"$(pkg-config --cflags --libs nalveo)"
cc -std=c99 -Wall -Wextra -Wpedantic -Werror "$build/client/analyse.c" -o "$build/client/shared" \
    "${flags[@]}" -lm
checkclient env LD_LIBRARY_PATH="$libraries" "$build/client/shared"
read -r -a flags <<<"$(pkg-config --static --cflags --libs nalveo)"
cc -std=c99 -static "$build/client/analyse.c" -o "$build/client/static" "${flags[@]}"
checkclient "$build/client/static"

# The shared library shows the functions of its header and nothing else, and needs nothing but the
# language's libraries.
declared=$(grep -oE '\bnalveo_[a-z0-9_]+\([a-z]' "$prefix/include/nalveo.h" | sed 's/(.*//' | sort -u)
shown=$(nm -D --defined-only "$library" | awk '$2 != "A" { sub("@.*", "", $3); print $3 }' | sort)
diff <(echo "$declared") <(echo "$shown")
readelf -d "$library" | grep -q 'SONAME.*\[libnalveo.so.0\]'
readelf -d "$library" | sed -nE 's/.*NEEDED.*\[(.*)\]/\1/p' | while read -r name; do
    [[ $name =~ ^(libstdc\+\+|libm|libc|libgcc_s|ld-linux[-_.a-z0-9]*)\.so ]] ||
        { echo "libnalveo.so needs $name" >&2; exit 1; }
done

# Python finds the library of its own tree, which has the program's version.
version=$(PYTHONPATH=$moved/lib/python3/dist-packages /usr/bin/python3 -c 'import nalveo
with open("/proc/self/maps", encoding="utf-8") as maps:
    assert any("/client/moved/" in line for line in maps if "libnalveo" in line)
print(nalveo.__version__)')
[[ $("$prefix/bin/nalveo16") == *"=== NALVEO16 v$version ==="* ]]

# Every header that is for users stands on its own: C++20, and the C interface in any C and C++.
(cd "$prefix/include/nalveo" && find . -name '*.h' -exec printf '#include "%s"\n' {} \;) |
    while read -r line; do
        g++ -std=c++20 -Wall -Wextra -Wno-psabi -Werror -fsyntax-only \
            -I "$prefix/include/nalveo" -x c++ - <<<"$line"
    done
for standard in 'c -std=c99' 'c -std=c17' 'c++ -std=c++11'; do
    # shellcheck disable=SC2086  # language and standard are two words
    gcc -x $standard -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I "$prefix/include" - \
        <<<'#include <nalveo.h>'
done
