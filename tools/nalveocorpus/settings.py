"""Options of the analyser, as they stand behind "--", as settings of the library."""

import os

import nalveo

# Option of the analyser, argument of nalveo.analyze, type and default.
OPTIONS = {
    "lframe": ("hop_length", int, None),
    "ccord": ("order", int, 39),
    "ccmeth": ("method", int, 1),
    "f0min": ("f0_floor", float, 60.0),
    "f0max": ("f0_ceil", float, 500.0),
    "f0acc": ("refine", int, 0),
    "alpha": ("alpha", float, None),
    "htsscale": ("scale", int, 1),
    "zfill": ("zfill", int, 160),
}
ELSEWHERE = ("f0load", "indlist", "cctimeit")
NATIVE = 0  # the rate that stands for the recording's own


class Unfit(Exception):
    """What is wrong with the command line, for the user."""


def shown(name):
    """A name for people: as it is, or quoted when it holds a newline or the like."""
    text = name if name.isprintable() else repr(name)
    return text.encode("utf-8", "surrogateescape").decode("utf-8", "replace")


def reason(error):
    """What an error of the system says, for people."""
    text = getattr(error, "strerror", None) or str(error)
    name = getattr(error, "filename", None)
    return f"{text}: {shown(os.fsdecode(name))}" if name else text


def explained(error):
    """What the library says of its arguments, with the options that they come from."""
    names = ", ".join(f"--{name} is {argument}" for name, (argument, _, _) in OPTIONS.items()
                      if argument in str(error))
    return f"{error}. Here, {names}." if names else f"{error}."


def parse(options, rate):
    """Arguments of nalveo.analyze for options such as --ccord=24, defaults spelled out."""
    arguments = {argument: default for argument, _, default in OPTIONS.values()}
    if rate != NATIVE:
        arguments.update(hop_length=80, alpha=0.42)
    given = set()
    for option in options:
        name, equals, value = option.removeprefix("--").partition("=")
        name = name.lower()
        if name in ELSEWHERE:
            raise Unfit(f"--{name} does not go with a corpus.")
        if not option.startswith("--") or name not in OPTIONS or not equals:
            raise Unfit(f"{option} is no option of nalveo16; they are written as in --ccord=24.")
        if name in given:
            raise Unfit(f"--{name} is given twice.")
        given.add(name)
        argument, kind, _ = OPTIONS[name]
        try:
            if "_" in value:  # which Python takes between digits
                raise ValueError
            arguments[argument] = kind(value)
        except ValueError:
            number = "whole number" if kind is int else "number"
            raise Unfit(f"{option}: {value!r} is no {number}.") from None
    arguments["scale"] = "hts" if arguments["scale"] in (1, "hts") else "plain"
    arguments["zfill"] = max(0, arguments["zfill"])
    try:
        nalveo.analyze([0.0] * 1000, rate or 16000, **arguments)
    except ValueError as error:
        raise Unfit(explained(error)) from error
    return arguments
