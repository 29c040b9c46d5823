"""The command line of nalveo16-corpus."""

import argparse
import hashlib
import os
import re
import shutil
import signal
import sys

import nalveo

from . import hosts, results, settings, state
from .recordings import PLAIN_RATE, Found, Reader
from .run import SIGNALS
from .settings import NATIVE, Unfit, reason, shown
from .work import Work, interrupted, silence

DESCRIPTION = """\
Analyses every recording below IN_DIR into OUT_DIR/.../NAME.{lf0,mcc,mvf}. What is finished already
is left alone, so that the same command goes on after an interruption."""
END = """\
Options of nalveo16 stand behind --. Files that failed are listed at the end with the reason;
OUT_DIR/nalveo16-corpus.tsv and .json have a row for each file. Exit status: 0 when all went well, 1
when files failed, 2 when the run could not start, 130 when it was interrupted."""


def slice_of(text):
    """K and N of K/N; N is None for K alone."""
    found = re.fullmatch(r"([1-9]\d{0,8})(?:/([1-9]\d{0,8}))?", text)
    if not found:
        raise argparse.ArgumentTypeError("must be as in 3/8.")
    part, parts = int(found[1]), int(found[2]) if found[2] else None
    if parts is not None and part > parts:
        raise argparse.ArgumentTypeError(f"must be between 1/{parts} and {parts}/{parts}.")
    return part, parts


def count(text):
    """A number above 0."""
    if not re.fullmatch(r"[1-9]\d{0,4}", text):
        raise argparse.ArgumentTypeError("must be a number above 0.")
    return int(text)


class Parser(argparse.ArgumentParser):
    """Errors in one line, with the exit status of a run that could not start."""

    def error(self, message):
        raise Unfit(message)


def parser():
    """What the command line may hold."""
    made = Parser(prog="nalveo16-corpus", description=DESCRIPTION, epilog=END, add_help=False,
                  formatter_class=argparse.RawDescriptionHelpFormatter, allow_abbrev=False,
                  usage="nalveo16-corpus IN_DIR OUT_DIR [options] [-- options of nalveo16]")
    made.add_argument("folders", nargs="*", help=argparse.SUPPRESS)
    add = made.add_argument_group("options").add_argument
    add("-j", "--jobs", type=count, metavar="N", help="threads (default: one per processor core)")
    add("--convert", action="store_true", help="whatever sox can read goes through sox if need be")
    add("--channel", type=count, metavar="N", help="takes this channel instead of the downmix")
    add("--rate", choices=["16000", "native"], default="16000",
        help="analyses at this rate, or at that of each recording")
    add("--layout", choices=["together", "kinds"], default="together",
        help="kinds: OUT_DIR/lf0/..., mgc/... and mvf/... instead of one folder for all")
    add("--npz", action="store_true", help="one NAME.npz for numpy instead of three files")
    add("--slice", type=slice_of, metavar="K/N", dest="part",
        help="does the K-th of N parts of the corpus only, as in an array job of Slurm; K alone: "
        "of as many parts as before")
    add("--hosts", metavar="HOSTS", help="machines to use, as GNU parallel's --sshlogin takes "
        "them, or a file that lists them; all must see both folders and this program under the "
        "same paths")
    add("--under", type=int, help=argparse.SUPPRESS)
    add("--version", action="version", version=f"nalveo16-corpus {nalveo.__version__}")
    add("-h", "--help", action="help", help="this text")
    return made


def main(program):
    """The whole program; `program` is its own path."""
    sys.stdout.reconfigure(errors="replace")
    for number in SIGNALS:
        if signal.getsignal(number) != signal.SIG_IGN:
            signal.signal(number, signal.default_int_handler)
    try:
        status = corpus(program)
        sys.stdout.flush()
        return status
    except (Unfit, state.Refused) as error:
        print(f"nalveo16-corpus: {error}", file=sys.stderr)
    except KeyboardInterrupt:
        return interrupted()
    except BrokenPipeError:
        silence()  # who reads has seen enough
        return 1
    except OSError as error:
        print(f"nalveo16-corpus: {reason(error)}.", file=sys.stderr)
    return 2


def corpus(program):
    """Reads the command line, does the run and reports; the exit status."""
    line = sys.argv[1:]
    behind = line.index("--") if "--" in line else len(line)
    options = line[behind + 1:]
    made = parser()
    args, unknown = made.parse_known_args(line[:behind])
    if unknown:
        raise Unfit(f"unknown option {unknown[0]}; options of nalveo16 stand behind --.")
    if len(args.folders) != 2:
        made.print_help(sys.stderr)
        return 2
    if args.under is not None:
        hosts.die_with_parent(args.under)
    rate = NATIVE if args.rate == "native" else PLAIN_RATE
    if args.npz and args.layout != "together":
        raise Unfit("--npz and --layout do not go together.")
    convert = args.convert or args.channel is not None or rate == NATIVE
    if convert and not shutil.which("sox"):
        raise Unfit("sox is not installed (Debian: sox).")
    arguments = settings.parse(options, rate)
    if not os.path.isdir(args.folders[0]):
        raise Unfit(f"there is no folder {args.folders[0]}.")
    folder = os.path.realpath(args.folders[0])
    found = Found(folder, convert)
    layout = "npz" if args.npz else args.layout
    if not found.files:
        for name, why in found.lost.items():
            print(f"FAILED {shown(name)}\n    {why}", file=sys.stderr)
        raise Unfit(f"there is no recording below {folder}. {found.passed_over()}".rstrip())
    try:
        os.makedirs(args.folders[1], exist_ok=True)
    except OSError as error:
        raise Unfit(f"could not create {args.folders[1]}: {error.strerror}.") from error
    output = os.path.realpath(args.folders[1])
    manifest = {"version": nalveo.__version__, "layout": layout, "rate": args.rate,
                "channel": args.channel or "downmix", "settings": arguments}
    if args.hosts:
        if args.part:
            raise Unfit("--hosts and --slice do not go together.")
        machines = hosts.Machines(args.hosts)
        here = state.State(output, f"hosts-of-{machines.slices}")
        here.enter(manifest)
        if machines.run(program, again(folder, output, args, options)):
            return interrupted()
        return Work(found, folder, here, results.Results(here, layout), manifest).report(
            found.files, None)

    here = state.State(output, "whole")
    names = found.files
    if args.part:
        part, parts = args.part
        parts = parts or here.slices(None)
        if parts is None or part > parts:
            raise Unfit(f"--slice {part}: the number of slices is not known; say --slice {part}/N.")
        here.name = f"{part}-of-{parts}"
        names = [name for name in names if hashed(name) % parts == part - 1]
    here.enter(manifest)
    if args.part:
        here.slices(parts)
    return Work(found, folder, here, results.Results(here, layout), manifest).do(
        names, Reader(convert, args.channel, rate), args.jobs or len(os.sched_getaffinity(0)))


def hashed(name):
    """A number of a recording for its slice. It hangs on the name alone, so that a file that comes
    while slices begin is in one of them all the same."""
    return int.from_bytes(hashlib.blake2b(os.fsencode(name), digest_size=8).digest(), "big")


def again(folder, output, args, options):
    """The arguments of a slice on another machine."""
    line = [folder, output, "--rate", args.rate, "--layout", args.layout]
    line += ["--convert"] * args.convert + ["--npz"] * args.npz
    if args.channel:
        line += ["--channel", str(args.channel)]
    if args.jobs:
        line += ["--jobs", str(args.jobs)]
    return [*line, "--", *options]
