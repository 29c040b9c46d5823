#!/usr/bin/env bash
# One input gives the same bytes, whatever compiled the program and whatever processor runs it:
# builds it with gcc and clang at -O0, -O2 and -O3 and with the sanitizers, for SSE2 alone, for AVX2
# and for aarch64; runs each, and one of them under valgrind, on emulated processors with and without
# AVX2 and FMA, and with the C library told to leave these alone; then compares all outputs of all
# methods, and the speech that nalveo16-synth makes of them. The builds for SSE2, AVX2 and aarch64
# also run the tests of the kernels, whose lengths no recording has.
#
#   scripts/samebytes.sh                the sample recording
#   scripts/samebytes.sh FILE.wav ...   other recordings; the emulators take minutes for each
#   scripts/samebytes.sh presets        the sample recording, by the builds of the presets release,
#                                       clang and asan, which .ci/run has made, and those for SSE2,
#                                       AVX2 and aarch64; then a table of times by width
#
# Needs what "scripts/setup.sh full" installs. Exit status 1 when any byte differs.
set -euo pipefail
presets=
if [[ ${1-} == presets ]]; then
    presets=yes
    shift
fi
files=()
for file in "$@"; do files+=("$(realpath -- "$file")"); done
cd "$(dirname "${BASH_SOURCE[0]}")/.."
[[ ${#files[@]} -gt 0 ]] || files=("$PWD/examples/sample.wav")
top=$PWD/build/samebytes
mkdir -p "$top"

# A frame per 50 ms: every routine runs, and the emulators come to an end.
options=("--ccmeth=0" "--ccmeth=1" "--ccmeth=1 --f0acc=5" "--ccmeth=2 --f0acc=1" "--ccmeth=3"
    "--ccmeth=4" "--ccmeth=1 --ccord=24 --alpha=0.35 --f0min=45 --f0max=700 --htsscale=0")

# Checksums of all that one way of running the programs writes and says. The last argument is the
# program; the other one is beside it. Fails where either does or an output is missing: "set -e"
# does not reach into a command substitution.
run() {
    local folder file set warp way=("${@:1:$#-1}") program=${!#}
    folder=$(mktemp -d)
    for file in "${files[@]}"; do
        for set in "${options[@]}"; do
            warp=$(grep -oE -e '--(alpha|htsscale)=[^ ]+' <<<"$set")
            # shellcheck disable=SC2086  # several options in one string
            (cd "$folder" && "${way[@]}" "$program" "$file" lf0 mcc mvf --lframe=800 $set &&
                "${way[@]}" "$program-synth" lf0 mcc mvf wav --lframe=800 $warp &&
                sha256sum lf0 mcc mvf wav) 2>/dev/null || return 1
            rm -f "$folder"/*
        done
    done
    rmdir "$folder"
}

reference='' differing=0
# Compares one way with the first one.
check() {
    local name=$1 sums verdict=same
    shift
    if ! sums=$(run "$@") || [[ -z $sums ]]; then
        printf '%-48s %s\n' "$name" 'DOES NOT RUN'
        differing=1
        return
    fi
    reference=${reference:-$sums}
    if [[ $sums != "$reference" ]]; then
        verdict="DIFFERENT: $(diff <(echo "$reference") <(echo "$sums") | grep -c '^>') outputs"
        differing=1
    fi
    printf '%-48s %s\n' "$name" "$verdict"
}

# build NAME COMPILER FLAGS [OPTION ...]
build() {
    local name=$1 compiler=$2 flags=$3
    shift 3
    cmake -G Ninja -S . -B "$top/$name" -DCMAKE_CXX_COMPILER="$compiler" -DNALVEO_TESTS=OFF \
        -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE="$flags" "$@" >"$top/$name.log"
    cmake --build "$top/$name" --parallel "$(nproc)" --target nalveo16 nalveo16-synth \
        >>"$top/$name.log"
}

# testkernels NAME [EMULATOR ...]: of a build that has tests.
testkernels() {
    local name=$1 verdict=passed
    shift
    cmake --build "$top/$name" --parallel "$(nproc)" --target kernel_tests >>"$top/$name.log"
    "$@" "$top/$name/tests/kernel_tests" --gtest_brief=1 || { verdict=FAILED differing=1; }
    printf '%-48s %s\n' "kernels: $name" "$verdict"
}

if [[ $presets ]]; then
    program=build/release/nalveo16
    for preset in release clang asan; do check "preset $preset" "$PWD/build/$preset/nalveo16"; done
else
    program=build/samebytes/g++-O3/nalveo16
    for compiler in g++ clang++; do
        for level in -O3 -O2 -O0; do
            build "$compiler$level" "$compiler" "$level"
            check "$compiler $level" "$top/$compiler$level/nalveo16"
        done
        build "$compiler-sanitized" "$compiler" \
            '-O1 -fsanitize=address,undefined -fno-sanitize-recover=all'
        check "$compiler -O1 with sanitizers" "$top/$compiler-sanitized/nalveo16"
    done
fi

for width in baseline avx2; do
    build "$width" g++ -O3 -DNALVEO_WIDEST="$width" -DNALVEO_TESTS=ON
    check "widest: $width" "$top/$width/nalveo16"
    testkernels "$width"
done

# Debian has GoogleTest's source, but no library of it for other processors.
cross=(-DCMAKE_SYSTEM_NAME=Linux -DCMAKE_SYSTEM_PROCESSOR=aarch64)
emulator=(qemu-aarch64 -L /usr/aarch64-linux-gnu)
cmake -G Ninja -S /usr/src/googletest -B "$top/gtest" -DCMAKE_BUILD_TYPE=Release "${cross[@]}" \
    -DCMAKE_CXX_COMPILER=aarch64-linux-gnu-g++ -DCMAKE_C_COMPILER=aarch64-linux-gnu-gcc \
    -DBUILD_GMOCK=OFF -DCMAKE_INSTALL_PREFIX="$top/gtest/installed" >"$top/gtest.log"
cmake --build "$top/gtest" --parallel "$(nproc)" --target install >>"$top/gtest.log"
build aarch64 aarch64-linux-gnu-g++ -O3 "${cross[@]}" -DNALVEO_TESTS=ON -DNALVEO_WERROR=ON \
    -DCMAKE_CROSSCOMPILING_EMULATOR="$(IFS=';' && echo "${emulator[*]}")" \
    -DGTest_ROOT="$top/gtest/installed"
check 'emulated: aarch64' "${emulator[@]}" "$top/aarch64/nalveo16"
testkernels aarch64 "${emulator[@]}"

program=$PWD/$program
hwcaps=glibc.cpu.hwcaps
off=-AVX2,-AVX2_Usable,-FMA,-FMA_Usable,-FMA4,-FMA4_Usable,-AVX512F,-AVX512F_Usable
check 'C library without AVX2 and FMA' env GLIBC_TUNABLES="$hwcaps=$off" "$program"
check 'emulated: no AVX, no FMA' qemu-x86_64 -cpu qemu64 "$program"
if [[ ! $presets ]]; then
    check 'valgrind: AVX2, no AVX-512' valgrind --quiet "$program"
    check 'emulated: AVX2 and FMA, no AVX-512' qemu-x86_64 -cpu max "$program"
fi
# One round on a machine that does other things: to be looked at, not to be judged.
if [[ $presets ]]; then
    bench/table.py examples/sample.wav "$program" "$top"/{avx2,baseline}/nalveo16 -n 1
fi
if grep -qw avx512_vbmi2 /proc/cpuinfo; then
    echo 'This processor has AVX-512, which the builds above have used.'
fi
exit "$differing"
