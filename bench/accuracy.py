#!/usr/bin/python3
"""Measures how exact the analysis and the resynthesis are, and prints a page of Markdown.

    bench/accuracy.py RECORDING.wav ... [--only pitch|envelope|roundtrip] [-o PAGE.md]

It needs nalveo16-synth on the path and nalveo importable, as an installed tree has them, Debian's
packages sptk and praat, and recordings, mono with 16000 Hz and 16 bits.
"""

import argparse
import contextlib
import os
import shutil
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "accuracy"))
sys.dont_write_bytecode = True

import envelopes  # noqa: E402
import pitch  # noqa: E402
import roundtrip  # noqa: E402
import signals  # noqa: E402

PARTS = {"pitch": pitch, "envelope": envelopes, "roundtrip": roundtrip}
HEAD = """# Accuracy

Made by `bench/accuracy.py`, which anybody can run: what is measured, against what, and what came
out, better or worse. Measures are those of [measures.md](measures.md).

The recordings, {seconds:.0f} s of speech: {names}.
"""


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("recordings", nargs="+", metavar="RECORDING.wav")
    parser.add_argument("--only", choices=PARTS)
    parser.add_argument("-o", dest="page", metavar="PAGE.md", help="instead of standard output")
    options = parser.parse_args()
    for program in ("nalveo16-synth", "sptk", "praat"):
        if not shutil.which(program):
            parser.error(f"{program} is not on the path")
    recordings = {os.path.splitext(os.path.basename(path))[0]: signals.read(path)
                  for path in options.recordings}
    page = [HEAD.format(seconds=sum(map(len, recordings.values())) / signals.FS,
                        names=", ".join(recordings))]
    for name, part in PARTS.items():
        if options.only in (None, name):
            print(name, file=sys.stderr)
            page.append(part.report(recordings))
    with contextlib.ExitStack() as stack:
        out = stack.enter_context(open(options.page, "w", encoding="utf-8")) if options.page \
            else sys.stdout
        out.write("\n".join(page).rstrip() + "\n")


if __name__ == "__main__":
    main()
