#!/usr/bin/env bash
# Sets up, builds the program, analyses the sample recording (or the WAV file that is named) and
# says in a few lines what was found.
set -euo pipefail
wave=${1+$(realpath -- "$1")}
cd "$(dirname "${BASH_SOURCE[0]}")/.."
wave=${wave:-examples/sample.wav}

scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release --parallel "$(nproc)" --target nalveo16

out=build/demo
mkdir -p "$out"
f0=$out/speech.lf0 cc=$out/speech.mcc fv=$out/speech.mvf
rm -f "$f0" "$cc" "$fv"
echo
echo "nalveo16 $wave $f0 $cc $fv"
build/release/nalveo16 "$wave" "$f0" "$cc" "$fv"

bytes() { wc -c <"$1"; }
# A track is a bare sequence of float32, so that od can print it, one value per line.
floats() { od -An -v -t f4 -w4 "$1"; }

for file in "$f0" "$cc" "$fv"; do
    if [[ ! -s $file ]]; then
        echo "demo: $file was not written" >&2
        exit 1
    fi
done
# The defaults: one frame per 5 ms, 40 cepstral coefficients per frame.
frames=$(($(bytes "$f0") / 4))
if [[ $(bytes "$cc") -ne $((frames * 160)) || $(bytes "$fv") -ne $((frames * 4)) ]]; then
    echo "demo: the files written do not agree in their number of frames" >&2
    exit 1
fi

export LC_ALL=C
# Count, minimum, median and maximum of the sorted numbers read.
# shellcheck disable=SC2016  # the dollar signs are awk's
summary='{ v[NR] = $1 } END { print NR, v[1] + 0, v[int((NR + 1) / 2)] + 0, v[NR] + 0 }'
read -r voiced f0min f0mid f0max \
    <<<"$(floats "$f0" | awk '$1 > -1e9 { print exp($1) }' | sort -g | awk "$summary")"
read -r _ fvmin fvmid fvmax <<<"$(floats "$fv" | awk '$1 > 0' | sort -g | awk "$summary")"
awk -v frames="$frames" -v voiced="$voiced" -v size="$(bytes "$wave")" \
    -v f0min="$f0min" -v f0mid="$f0mid" -v f0max="$f0max" \
    -v fvmin="$fvmin" -v fvmid="$fvmid" -v fvmax="$fvmax" 'BEGIN {
    printf "  speech      %.2f s\n", (size - 44) / 32000
    printf "  frames      %d, one per 5 ms\n", frames
    printf "  voiced      %d frames, %.1f %%\n", voiced, 100 * voiced / frames
    if (voiced == 0) exit
    printf "  f0          %.1f to %.1f Hz, median %.1f Hz\n", f0min, f0max, f0mid
    printf "  max. voiced %.0f to %.0f Hz, median %.0f Hz\n", fvmin, fvmax, fvmid
}'
echo "  $f0  $(bytes "$f0") bytes: log f0, 1 float32 per frame"
echo "  $cc  $(bytes "$cc") bytes: mel-cepstra, 40 float32 per frame"
echo "  $fv  $(bytes "$fv") bytes: maximum voiced frequency, 1 float32 per frame"
