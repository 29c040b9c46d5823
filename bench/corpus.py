#!/usr/bin/python3
"""Measures what a corpus costs around the analysis itself, and prints a table.

    bench/corpus.py FOLDER [-n FILES] [-s SECONDS] [-r ROUNDS] [--old TOOL] [--scratch DIR]

Cuts the plain recordings below FOLDER into files of about SECONDS, all of them different, and in
each round takes the next of them through

    bare      the library in one process, samples in memory, a thread for each core
    tool      nalveo16-corpus
    again     the same when all is finished
    xargs     a plain `xargs -P` over nalveo16
    old       an older nalveo16-corpus, with the nalveo16 beside it, if one is given; as it may take
              long, in the first round only

CPU is that of the processes and all that they began. "bare/" is the share of the analysis in it,
per file. Memory is the peak of the largest process, at least that of this script, some 12 MB; load is the
machine's after the last round. Programs are those on the path, the library is what Python finds.
Takes numpy. Nothing is judged by time, since a busy machine says little.
"""

import argparse
import glob
import os
import sys
import tempfile
import threading
import time
import wave

RATE = 16000
CHUNK = 500  # files whose samples are in memory at a time


def cut(source, folder, count, seconds, rounds):
    """Cuts the plain recordings below a folder, end to end, into files of 0.9 to 1.1 times so many
    seconds, at offsets of no common step."""
    import numpy as np
    found = []
    for path in sorted(glob.glob(os.path.join(source, "**/*.wav"), recursive=True)):
        with wave.open(path) as file:
            if file.getparams()[:3] == (1, 2, RATE):
                found.append(np.frombuffer(file.readframes(file.getnframes()), "<i2"))
    samples = np.concatenate(found)
    random = np.random.default_rng(1)
    for number in range(count):
        length = int(RATE * seconds * random.uniform(0.9, 1.1))
        start = random.integers(samples.size - length)
        place = os.path.join(folder, str(number * rounds // count), f"voice{number // 1000:03}")
        os.makedirs(place, exist_ok=True)
        with wave.open(os.path.join(place, f"utt{number:06}.wav"), "wb") as file:
            file.setparams((1, 2, RATE, 0, "NONE", ""))
            file.writeframes(samples[start:start + length].tobytes())


def recordings(folder):
    return sorted(glob.glob(os.path.join(folder, "*/*.wav")))


def bare(folder):
    """Prints user, system and wall seconds of the analysis of samples in memory."""
    import nalveo
    import numpy as np
    paths, spent = recordings(folder), np.zeros(3)

    def now():
        times = os.times()
        return np.array([times.user, times.system, time.perf_counter()])

    def work(turns, lock):
        while True:
            with lock:
                signal = next(turns, None)
            if signal is None:
                return
            nalveo.analyze(signal, RATE)
    for first in range(0, len(paths), CHUNK):
        samples = []
        for path in paths[first:first + CHUNK]:
            with wave.open(path) as file:
                samples.append(np.frombuffer(file.readframes(file.getnframes()), "<i2") / 32768.0)
        task = iter(samples), threading.Lock()
        threads = [threading.Thread(target=work, args=task) for _ in os.sched_getaffinity(0)]
        began = now()
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        spent += now() - began
    print(*spent)


def spent(command, feed=os.devnull):
    """User, system and wall seconds and peak memory in MB of a command; and what it printed."""
    with open(feed, "rb") as given, tempfile.TemporaryFile() as said:
        began = time.perf_counter()
        child = os.posix_spawnp(command[0], command, os.environ, file_actions=[
            (os.POSIX_SPAWN_DUP2, given.fileno(), 0), (os.POSIX_SPAWN_DUP2, said.fileno(), 1)])
        _, status, usage = os.wait4(child, 0)
        wall = time.perf_counter() - began
        said.seek(0)
        text = said.read().decode(errors="replace")
    if status:
        sys.exit(f"corpus: {' '.join(command)} failed: {text[-500:]}")
    return [usage.ru_utime, usage.ru_stime, wall, usage.ru_maxrss / 1024], text


def arguments_of_xargs(folder, output):
    """A file that has those of nalveo16 for every recording, and the folders for its results."""
    with open("list", "wb") as file:
        for path in recordings(folder):
            stem = os.path.join(output, os.path.relpath(path, folder)[:-4])
            os.makedirs(os.path.dirname(stem), exist_ok=True)
            line = [path, *(f"{stem}.{kind}" for kind in ("lf0", "mcc", "mvf"))]
            file.write("".join(f"{word}\0" for word in line).encode())
    return "list"


def main():
    parser = argparse.ArgumentParser(usage=__doc__.split("\n\n")[1].strip())
    parser.add_argument("folder", type=os.path.abspath)
    parser.add_argument("-n", type=int, default=2000)
    parser.add_argument("-s", type=float, default=0.9)
    parser.add_argument("-r", type=int, default=4)
    parser.add_argument("--old", type=os.path.abspath)
    parser.add_argument("--scratch")
    parser.add_argument("--bare", action="store_true", help=argparse.SUPPRESS)
    args = parser.parse_args()
    if args.bare:
        bare(args.folder)
        return
    workers = str(len(os.sched_getaffinity(0)))
    table = {}
    with tempfile.TemporaryDirectory(prefix="nalveo16-bench.", dir=args.scratch) as scratch:
        os.chdir(scratch)
        child = os.fork()  # so that this process stays small: its size is counted to its children
        if child == 0:
            cut(args.folder, "in", args.n, args.s, args.r)
            os._exit(0)
        os.waitpid(child, 0)
        # Nothing is removed on the way: file systems look twice at what was there a moment ago.
        for part in map(str, range(args.r)):
            folder = os.path.join("in", part)

            def row(name, *command):
                figures, text = spent(*command)
                if name == "bare":
                    figures[:3] = map(float, text.split())
                total = table.setdefault(name, [0.0] * 5)
                total[:3] = [old + new for old, new in zip(total, figures[:3])]
                total[3] = max(total[3], figures[3])
                total[4] += len(recordings(folder))
            row("bare", [sys.executable, os.path.realpath(__file__), "--bare", folder])
            row("tool", ["nalveo16-corpus", folder, "tool" + part])
            row("again", ["nalveo16-corpus", folder, "tool" + part])
            row("xargs", ["xargs", "-0", "-n", "4", "-P", workers, "nalveo16"],
                arguments_of_xargs(folder, "xargs" + part))
            if args.old and part == "0":
                row("old", [args.old, folder, "old" + part])
            print(f"{int(part) + 1} of {args.r} rounds", file=sys.stderr, flush=True)
    print(f"files of {args.s} s, load {os.getloadavg()[0]:.1f}\n"
          "         files  user s   sys s   CPU s  wall s  ms/file   bare/     MB")
    each = sum(table["bare"][:2]) / table["bare"][4]
    for name, (user, system, wall, memory, files) in table.items():
        took = (user + system) / files
        print(f"{name:6}{files:8.0f}{user:8.2f}{system:8.2f}{user + system:8.2f}{wall:8.2f}"
              f"{1000 * took:9.3f}{each / took:8.2f}{memory:7.0f}")


if __name__ == "__main__":
    main()
