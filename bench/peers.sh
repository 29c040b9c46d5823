#!/usr/bin/env bash
# Times the same work by this program and by its peers over one recording, in turn, and prints CPU
# seconds (user and system, of all processes of a pipe) per second of audio, the least of the rounds.
#
#   bench/peers.sh RECORDING.wav PROGRAM [WORLD_FOLDER]
#
# SPTK is Debian's package sptk (version 3.9). WORLD takes part where the folder of its source is
# named; it is compiled here with -O3. Everything runs at its defaults, but for a frame shift of 5 ms,
# f0 from 60 to 500 Hz, and cepstra of order 39 at alpha 0.42. Files are read from and written to
# memory where /dev/shm is there. ROUNDS in the environment sets the number of rounds (5).
set -euo pipefail
if [[ $# -lt 2 || $# -gt 3 ]]; then
    sed -n '2,/^set/ { /^set/d; s/^# \?//p }' "$0"
    exit 2
fi
recording=$(realpath -- "$1") program=$(realpath -- "$2")
bench=$(realpath -- "$(dirname "${BASH_SOURCE[0]}")")
rounds=${ROUNDS:-5}
for tool in sox sptk; do
    command -v "$tool" >/dev/null || { echo "peers: $tool is not installed." >&2; exit 1; }
done
scratch=$(mktemp -d ${TMPDIR:+-p "$TMPDIR"} peers.XXXXXX 2>/dev/null || mktemp -d)
[[ ! -w /dev/shm ]] || { rmdir "$scratch"; scratch=$(mktemp -d /dev/shm/peers.XXXXXX); }
trap 'rm -rf "$scratch"' EXIT
if [[ $# -eq 3 ]]; then
    world=$(realpath -- "$3")
    g++ -O3 -I"$world/src" "$bench/world.cpp" "$world"/src/*.cpp -o "$scratch/world"
fi
cd "$scratch"
sox "$recording" -t raw -e signed -b 16 - | sptk x2x +sf >samples
seconds=$(soxi -D "$recording")

# Name of the work, and the command that does it, for every row.
spectra='sptk frame -l 400 -p 80 samples | sptk window -l 400 -L 512'
names=() commands=()
row() {
    names+=("$1")
    commands+=("$2")
}
row 'nalveo16: f0, cepstra' "'$program' '$recording' f0 cc"
row 'nalveo16: f0, cepstra, max. voiced freq.' "'$program' '$recording' f0 cc fv"
row 'nalveo16: the same, method 3' "'$program' '$recording' f0 cc fv --ccmeth=3"
row "SPTK: f0 by RAPT" 'sptk pitch -a 0 -s 16 -p 80 -L 60 -H 500 samples >f0'
row "SPTK: f0 by SWIPE'" 'sptk pitch -a 1 -s 16 -p 80 -L 60 -H 500 samples >f0'
row 'SPTK: cepstra by mcep' "$spectra | sptk mcep -l 512 -m 39 -a 0.42 -e 0.001 >cc"
row 'SPTK: cepstra by mgcep, gamma -1/3' \
    "$spectra | sptk mgcep -l 512 -m 39 -a 0.42 -c 3 -e 0.001 >cc"
if [[ -x world ]]; then
    row 'WORLD: DIO, StoneMask, CheapTrick' './world samples dio spectrum'
    row 'WORLD: the same and D4C' './world samples dio aperiodicity'
    row 'WORLD: Harvest, CheapTrick, D4C' './world samples harvest aperiodicity'
fi

TIMEFORMAT='%U %S'
least=()
for ((round = 0; round < rounds; ++round)); do
    for row in "${!names[@]}"; do
        # The outer redirection catches what `time` prints, the inner one what the programs say.
        used=$({ time bash -c "${commands[row]}" >said 2>&1; } 2>&1) || {
            echo "peers: failed: ${commands[row]}" >&2
            cat said >&2
            exit 1
        }
        least[row]=$(awk -v seconds="$seconds" -v before="${least[row]:-inf}" \
            '{ now = ($1 + $2) / seconds; print before == "inf" || now < before ? now : before }' \
            <<<"$used")
    done
done
printf '%.1f s of audio, least of %d rounds\n' "$seconds" "$rounds"
for row in "${!names[@]}"; do
    awk -v name="${names[row]}" -v cpu="${least[row]}" -v first="${least[0]}" \
        'BEGIN { printf "%-42s %.4f  %6.1f times the first\n", name, cpu, cpu / first }'
done
