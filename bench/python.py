#!/usr/bin/python3
"""What a call from Python costs, on a second of speech: the package beside the bare analysis and
the program, and two threads beside one.

    bench/python.py [SPEECH.wav]

Needs nalveo importable and nalveo16 on the path. CPU seconds are least of many rounds, in turn;
those of the threads are elapsed, and tell something on an idle machine with two cores only.
"""

import concurrent.futures
import ctypes
import os
import resource
import subprocess
import sys
import tempfile
import time
import wave

import numpy as np

import nalveo
from nalveo import _library

ROUNDS = 200
THREADED = 64  # calls


def second(path):
    """A second from the middle of a recording."""
    with wave.open(path) as file:
        x = np.frombuffer(file.readframes(file.getnframes()), "<i2")
    start = max(0, (x.size - 16000) // 2)
    return x[start:start + 16000]


def children():
    """CPU seconds of processes that have ended."""
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    x = second(sys.argv[1] if len(sys.argv) > 1 else os.path.join(here, "../examples/sample.wav"))
    samples = x / 32768
    options = _library.default_options()
    frames = _library.library.nalveo_frame_count(x.size, options)
    arrays = np.empty(frames), np.empty((frames, 40)), np.empty(frames)
    addresses = [samples.ctypes.data, samples.size, ctypes.byref(options),
                 *(array.ctypes.data for array in arrays)]

    def bare():
        _library.library.nalveo_analyse(*addresses)

    def package():
        nalveo.analyze(x, 16000)

    with tempfile.TemporaryDirectory() as folder:
        names = [os.path.join(folder, name) for name in ("wav", "lf0", "mcc", "mvf")]
        with wave.open(names[0], "wb") as file:
            file.setparams((1, 2, 16000, 0, "NONE", ""))
            file.writeframes(x.tobytes())

        def program():
            subprocess.run(["nalveo16", *names], check=True)

        best = {}
        for _ in range(ROUNDS):
            for call, clock in ((bare, time.process_time), (package, time.process_time),
                                (program, children)):
                start = clock()
                call()
                best[call] = min(best.get(call, 9.9), clock() - start)
    for call, seconds in best.items():
        print(f"{call.__name__:8} {1000 * seconds:6.2f} ms CPU, {seconds / best[bare]:.3f} of the "
              "bare analysis")

    elapsed = {}
    for _ in range(8):
        for threads in (1, 2):
            with concurrent.futures.ThreadPoolExecutor(threads) as pool:
                start = time.perf_counter()
                list(pool.map(lambda _: package(), range(THREADED)))
                took = time.perf_counter() - start
                elapsed[threads] = min(elapsed.get(threads, 9.9), took)
    print(f"two threads take {elapsed[2] / elapsed[1]:.2f} of the time of one")


if __name__ == "__main__":
    main()
