#!/usr/bin/python3
"""Times whole runs of programs over a recording, files in and out included, and prints a table.

    bench/table.py RECORDING.wav PROGRAM [OTHER ...] [-n ROUNDS] [-w WORDS] [-l]

The columns are CPU seconds (user and system) per second of audio of every program, the least of
the rounds; the aim on one core of a server processor of 2026, for real speech of which about half
is voiced; and the peak memory. The programs run in turn, round by round, since the speed of a
machine drifts: `B/A` is the median over the rounds of B's time divided by A's. The last rows are a
recording of one second and the start alone (the help text), in milliseconds of elapsed time.

-n sets the rounds (default 3); -w picks the rows whose names contain a text, such as "method 2".
-l times recordings of one second to an hour instead, made of the one that is named, by method 1
with four files.

The widest instructions, AVX2 and the baseline side by side are three builds:

    for widest in avx512 avx2 baseline; do
        cmake --preset package -B build/$widest -DNALVEO_WIDEST=$widest
        cmake --build build/$widest --target nalveo16 nalveo16-synth
    done
    bench/table.py SPEECH.wav build/{avx512,avx2,baseline}/nalveo16

Peak memory is what the system reports and holds at least that of this script, some 12 MB.
Outputs go to a temporary directory. Takes nothing but Python.
"""

import argparse
import os
import statistics
import string
import sys
import tempfile
import time
import wave

# Name of the work, files written, options, and the aim in CPU seconds per second of audio.
ROWS = (
    ("method 1, three files", 2, ("--ccmeth=1",), 0.0020),
    ("method 1, four files", 3, ("--ccmeth=1",), 0.0029),
    ("method 0, four files", 3, ("--ccmeth=0",), 0.0036),
    ("method 3, four files", 3, ("--ccmeth=3",), 0.0025),
    ("method 4, four files", 3, ("--ccmeth=4",), 0.0027),
    ("method 2, four files", 3, ("--ccmeth=2",), 0.010),
    ("method 1, four files, f0acc=5", 3, ("--ccmeth=1", "--f0acc=5"), 0.005),
)
SYNTHESIS_AIM = 0.003  # CPU seconds per second of audio
MEMORY_AIM = 64  # MB for a minute of speech
START_AIM = 5  # ms for one second of speech
LENGTHS = (1, 10, 60, 600, 3600)  # seconds
TRACKS = ("f0", "cc", "fv")


def run(program, arguments, folder):
    """Runs a program; returns its CPU seconds, elapsed seconds and peak memory in MB."""
    silence = [(os.POSIX_SPAWN_OPEN, 1, os.devnull, os.O_WRONLY, 0)]
    here = os.getcwd()
    os.chdir(folder)
    began = time.perf_counter()
    child = os.posix_spawn(program, [program, *arguments], os.environ, file_actions=silence)
    _, status, usage = os.wait4(child, 0)
    elapsed = time.perf_counter() - began
    os.chdir(here)
    if status != 0:
        sys.exit(f"table: {program} failed with {' '.join(arguments)}")
    return usage.ru_utime + usage.ru_stime, elapsed, usage.ru_maxrss / 1024


def rounds(programs, arguments, folder, count):
    """The runs of every program, taken in turn."""
    runs = [[] for _ in programs]
    for _ in range(count):
        for program, taken in zip(programs, runs):
            taken.append(run(program, arguments, folder))
    return runs


def row(name, runs, which, scale, aim):
    """Prints a row of figure `which` of the runs, times `scale`."""
    times = [[taken[which] * scale for taken in program] for program in runs]
    print(f"{name:30s}", *(f"{min(taken):9.5f}" for taken in times), end="")
    for others in times[1:]:
        ratio = statistics.median(other / first for first, other in zip(times[0], others))
        print(f" {ratio:6.2f}", end="")
    print(f" {aim:9.4f}" if aim else " " * 10, end="")
    print("".join(f" {max(taken[2] for taken in program):7.1f}" for program in runs), flush=True)


def cut(recording, seconds, path):
    """Writes a recording of that many seconds, one that is shorter again and again."""
    with wave.open(recording) as whole, wave.open(path, "wb") as part:
        part.setparams(whole.getparams())
        samples = whole.readframes(whole.getnframes())
        wanted = seconds * whole.getframerate() * whole.getsampwidth() * whole.getnchannels()
        while wanted > 0:
            part.writeframes(samples[:wanted])
            wanted -= len(samples)


def lengthrows(recording, programs, folder, args):
    """Prints a row per length; the shorter it is, the more rounds."""
    made = os.path.join(folder, "cut.wav")
    for seconds in LENGTHS:
        name = f"{seconds} s, method 1, four files"
        if args.words in name:
            cut(recording, seconds, made)
            count = args.rounds * min(10, max(1, 60 // seconds))
            row(name, rounds(programs, [made, *TRACKS], folder, count), 0, 1 / seconds, 0)


def workrows(recording, seconds, programs, folder, args):
    """Prints a row per kind of work."""
    for name, files, options, aim in ROWS:
        if args.words in name:
            arguments = [recording, *TRACKS[:files], *options]
            runs = rounds(programs, arguments, folder, args.rounds)
            row(name, runs, 0, 1 / seconds, aim)
    # The synthesiser of each build stands beside its analyser; a build may be older than it.
    synthesisers = [os.path.join(os.path.dirname(path), "nalveo16-synth") for path in programs]
    if args.words in "synthesis, four files" and all(map(os.path.exists, synthesisers)):
        run(programs[0], [recording, *TRACKS], folder)
        runs = rounds(synthesisers, [*TRACKS, "out.wav"], folder, args.rounds)
        row("synthesis, four files", runs, 0, 1 / seconds, SYNTHESIS_AIM)
    short = os.path.join(folder, "second.wav")
    cut(recording, 1, short)
    for name, arguments in (("one second, ms", [short, *TRACKS]), ("start alone, ms", [])):
        if args.words in name:
            runs = rounds(programs, arguments, folder, 10 * args.rounds)
            row(name, runs, 1, 1000, START_AIM if arguments else 0)


def main():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawTextHelpFormatter
    )
    parser.add_argument("recording", metavar="RECORDING.wav")
    parser.add_argument("programs", metavar="PROGRAM", nargs="+")
    parser.add_argument("-n", dest="rounds", type=int, default=3)
    parser.add_argument("-w", dest="words", default="")
    parser.add_argument("-l", dest="lengths", action="store_true")
    args = parser.parse_args()
    if args.rounds < 1:
        parser.error("at least one round")
    recording = os.path.abspath(args.recording)
    programs = [os.path.abspath(program) for program in args.programs]
    with wave.open(recording) as whole:
        seconds = whole.getnframes() / whole.getframerate()

    letters = string.ascii_uppercase[: len(programs)]
    print(f"{seconds:.1f} s of audio, least of {args.rounds} rounds")
    for letter, program in zip(letters, programs):
        print(f"{letter}: {program}")
    head = [f"{'CPU seconds per second':30s}", *(f"{letter:>9s}" for letter in letters)]
    head += [f"{letter + '/A':>6s}" for letter in letters[1:]] + [f"{'aim':>9s}", "peak MB"]
    print(*head)
    with tempfile.TemporaryDirectory(prefix="table") as folder:
        if args.lengths:
            lengthrows(recording, programs, folder, args)
        else:
            workrows(recording, seconds, programs, folder, args)


if __name__ == "__main__":
    main()
