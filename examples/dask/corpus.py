#!/usr/bin/python3
"""A corpus on a Dask cluster: each task does a slice of it with nalveo16-corpus, on one core.

    corpus.py SCHEDULER IN_DIR OUT_DIR [options of nalveo16-corpus] [-- options of nalveo16]

SCHEDULER is an address, as tcp://host:8786, or a scheduler file. Both folders must be seen by all
workers, which need nalveo16-corpus on their path. A slice whose worker is lost goes to another one
and does what is left of it; the same command goes on after failures.
"""

import os
import subprocess
import sys
import time

from distributed import Client, as_completed

SLICES_PER_THREAD = 4  # of the workers that are there, so that fast ones take more of them
WAIT = 600  # seconds for the first worker


def analyse(part, arguments):
    """Does a slice on a worker; exit status and what it said. The slice ends when its worker does:
    without --under, it would go on, and keep out the worker that is to do it again."""
    indir, outdir, *options = arguments
    command = ["nalveo16-corpus", indir, outdir, "--slice", part, "--jobs", "1",
               "--under", str(os.getpid()), *options]
    for wait in (1, 5, 15, None):
        done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, errors="replace", check=False)
        # A lost worker's slice may take a moment to end, and the next one is refused meanwhile.
        if "another run is at work" not in done.stdout or wait is None:
            return done.returncode, done.stdout
        time.sleep(wait)


def main():
    if len(sys.argv) < 4:
        sys.exit(__doc__)
    scheduler, indir, outdir, *options = sys.argv[1:]
    arguments = [os.path.abspath(indir), os.path.abspath(outdir), *options]
    kind = "scheduler_file" if os.path.isfile(scheduler) else "address"
    with Client(**{kind: scheduler}) as client:
        try:
            client.wait_for_workers(1, timeout=WAIT)
        except TimeoutError:
            sys.exit(f"No worker has come within {WAIT} s. Start some, as with dask-worker.")
        count = SLICES_PER_THREAD * sum(client.nthreads().values())
        parts = {client.submit(analyse, f"{part}/{count}", arguments, pure=False): part
                 for part in range(1, count + 1)}
        failed = 0
        for future in as_completed(parts):
            if future.status == "finished":
                status, said = future.result()
            else:
                status, said = 1, f"{future.exception()!r}\n"
            failed += status != 0
            print(f"Slice {parts[future]}/{count}:\n{said}", end="", flush=True)
    print(f"{count - failed} of {count} slices went well")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
