"""Options of the program, and which of them go together."""

import argparse
import math
import os

from .recording import FS, SHARED, Wrong, library

MADE = list(SHARED)[4:]  # without effect on tracks that are there
MOST = 5  # lines of a kind over each other
ENDINGS = (".png", ".pdf", ".svg", ".html")


def ending_of(path):
    return os.path.splitext(path)[1].lower()


def is_folder(path):
    return path.endswith("/") or os.path.isdir(path)


class Version(argparse.Action):
    """Tells the version of the analyser that the program works with."""

    def __call__(self, parser, *_):
        try:
            parser.exit(message=f"nalveo16-plot {library().__version__}\n")
        except Wrong as error:
            parser.error(str(error))


def parse(argv):
    parser = argparse.ArgumentParser(
        prog="nalveo16-plot", allow_abbrev=False,
        description="Draws a recording's waveform, spectrogram with f0 and maximum voiced "
        "frequency, the envelopes of its cepstra and its tracks. Without tracks, they are made as "
        "nalveo16 makes them.")
    add = parser.add_argument
    add("wave", metavar="IN.wav", nargs="*",
        help="recording; what is not mono, 16000 Hz, 16 bits is converted by sox")
    add("-o", "--output", action="append", metavar="OUT", help="picture: .png, .pdf, .svg or .html;"
        " or a folder, for a picture of each recording; may be repeated")
    add("--html", metavar="OUT.html", help="page with zoom, values under the pointer and sound")
    add("--show", action="store_true", help="open a window")
    add("--format", choices=[ending[1:] for ending in ENDINGS], default="png",
        help="of the pictures in a folder (png)")
    add("--lf0", metavar="FILE", action="append", default=[],
        help="track of log f0; repeated, the tracks lie over each other")
    add("--mcc", metavar="FILE", action="append", default=[], help="cepstra; may be repeated")
    add("--mvf", metavar="FILE", action="append", default=[],
        help="track of the maximum voiced frequency; may be repeated")
    add("--corpus", metavar="TABLE", help="draw the table that nalveo16-corpus wrote, instead of "
        "recordings")
    add("--frame", type=float, metavar="T", help="draw the spectrum of the frame at T seconds")
    add("--compare", action="store_true", help="with --frame: the envelopes of all five methods")
    add("--span", type=float, nargs=2, metavar=("T1", "T2"), help="draw T1 to T2 seconds only")
    add("--row", type=float, metavar="S", help="seconds in a row (all up to 12 s, else 20 or 30)")
    add("--size", type=float, nargs=2, metavar=("W", "H"), help="size of a page in inches")
    add("--dpi", type=float, metavar="N", help="dots per inch (.png 100, images in others 300)")
    add("--resynth", action="store_true", help="also draw the speech that the tracks make again")
    add("--partial", action="store_true", help="accept tracks that end before the recording")
    add("--title", metavar="TEXT", help="title of the picture")
    add("--version", action=Version, nargs=0, help="tell the version and end")
    tracks = parser.add_argument_group("how the tracks were, or are to be, made")
    add = tracks.add_argument
    add("--lframe", type=int, default=80, metavar="N", help="frame shift in samples (80)")
    add("--ccord", type=int, default=39, metavar="N", help="order of the cepstra (39)")
    add("--alpha", type=float, default=0.42, metavar="A", help="warping factor (0.42)")
    add("--htsscale", type=int, default=1, metavar="N", help="1: cepstra scaled for HTS (1)")
    made = parser.add_argument_group("further options of nalveo16, for tracks that are to be made")
    for name in MADE:
        made.add_argument("--" + name, metavar="N", type=SHARED[name][1], help="see nalveo16(1)")
    args = parser.parse_intermixed_args(argv)
    args.output = (args.output or []) + ([args.html] if args.html else [])
    check(parser, args)
    return args


def check(parser, args):
    """Ends the program with what does not go together."""
    if args.lframe < 1 or args.ccord < 0 or not -1 < args.alpha < 1:
        parser.error("lframe must be at least 1, ccord at least 0, alpha between -1 and 1")
    times = [time for time in (args.frame, *(args.span or ())) if time is not None]
    if not all(math.isfinite(time * FS) for time in times):
        parser.error("--frame and --span need finite times")
    if args.span and args.frame is not None:
        parser.error("--span has no effect on the picture of a --frame")
    if args.span and not 0 <= args.span[0] < args.span[1]:
        parser.error("--span needs two times, the later one last")
    if args.row is not None and not 0.01 <= args.row < math.inf:
        parser.error("--row must be a number of seconds, at least 0.01")
    if args.dpi is not None and not 10 <= args.dpi <= 2400:
        parser.error("--dpi must be from 10 to 2400")
    if args.size and not all(3 <= inches <= 100 for inches in args.size):
        parser.error("--size must be from 3 to 100 inches each way")
    if args.corpus:
        if args.wave or args.lf0 or args.mcc or args.mvf or args.frame is not None or args.span:
            parser.error("--corpus TABLE draws the table alone, no recordings, tracks or times")
    elif not args.wave:
        parser.error("name a recording, or a table (--corpus TABLE)")
    if args.lf0 or args.mcc or args.mvf:
        for name in MADE:
            if getattr(args, name) is not None:
                parser.error(f"--{name} has no effect on tracks that are made already")
        if args.compare:
            parser.error("--compare makes its own tracks; leave out --lf0, --mcc and --mvf")
        if len(args.wave) > 1:
            parser.error("--lf0, --mcc and --mvf are of one recording; name only that one")
    for kind, several in (("lf0", args.lf0), ("mvf", args.mvf),
                          ("mcc", args.mcc if args.frame is not None else ())):
        if len(several) > MOST:
            parser.error(f"{len(several)} times --{kind}: colours of more than {MOST} could not be "
                         "told apart")
    if args.frame is not None and len(args.lf0) > 1:
        parser.error("--frame draws the spectrum for one f0; name one --lf0")
    if args.compare and (args.frame is None or args.ccmeth is not None):
        parser.error("--compare needs --frame, and no --ccmeth")
    if args.html and ending_of(args.html) != ".html":
        parser.error("the name of the --html page must end in .html")
    if not args.output and not args.show:
        parser.error("name a picture to write (-o OUT.png), or say --show")
    for output in args.output:
        if is_folder(output):
            continue
        if ending_of(output) not in ENDINGS:
            parser.error("the picture's name must end in .png, .pdf, .svg or .html")
        if ending_of(output) != ".pdf" and len(args.wave) > 1:
            parser.error(f"{output} cannot hold several recordings: name a folder that is there, "
                         "or a .pdf")
        if ending_of(output) == ".html" and (args.frame is not None or args.corpus):
            parser.error("the page shows recordings; a --frame or --corpus goes to .png, .pdf or "
                         ".svg")
