#!/usr/bin/python3
"""Changes the source in one place at a time and sees whether the tests notice.

    scripts/mutants.py [--runs=N] [--seed=S] [--log=FILE] [PATH...]
    scripts/mutants.py --again=FILE
    scripts/mutants.py --change PATH OLD NEW

Works in a copy of the repository, build/mutants. Draws a place in src/ (or in the files or folders
PATH below it) at random and changes it: a constant, a bound or tie (< and <=), a sign, an order
(< and >, min and max), a condition. Builds with assertions on, runs the library's and the
program's tests up to the first failure. A change that no test notices is tried on recordings with
many options: either some output of the programs becomes another, or none does, which is what most
changes without a meaning (equivalent ones) look like.

Prints a line per change and the survivors at the end; --log keeps them as JSON, a line each, and
--again tries those of such a file once more, as after a test has been added. --change makes the
one change of a text that stands once in a file.

Exit status: 0 when fewer than one in ten of the changes that alter an output (or a test's verdict)
survive, 1 when more do, 2 when there is nothing to change or the tests fail without a change.
"""

import argparse
import collections
import json
import math
import os
import pathlib
import random
import re
import shutil
import signal
import subprocess
import sys
import time

from mutantruns import executables, limits, outputs, quiet, recordings

ROOT = pathlib.Path(__file__).resolve().parent.parent
PLACE = ROOT / "build" / "mutants"
TREE = PLACE / "tree"
BUILD = PLACE / "build"
SHARE = 0.1
SLOWEST = 10  # times as long as without a change

Site = collections.namedtuple("Site", "path start old new")

# Binary operators stand between blanks, which tells them from templates, pointers and references.
SWAPS = {
    " < ": [" <= ", " > "],
    " <= ": [" < ", " >= "],
    " > ": [" >= ", " < "],
    " >= ": [" > ", " <= "],
    " == ": [" != "],
    " != ": [" == "],
    " + ": [" - "],
    " - ": [" + "],
    " * ": [" / "],
    " / ": [" * "],
    " += ": [" -= "],
    " -= ": [" += "],
    " *= ": [" /= "],
    " && ": [" || "],
    " || ": [" && "],
    " << ": [" >> "],
    " >> ": [" << "],
    "++": ["--"],
    "--": ["++"],
    "(-": ["("],
    " = -": [" = "],
    "return -": ["return "],
    "std::min(": ["std::max("],
    "std::max(": ["std::min("],
    "std::floor(": ["std::ceil("],
    "std::ceil(": ["std::floor("],
    "true": ["false"],
    "false": ["true"],
    "_IOLBF": ["_IOFBF"],
}
SWAP = re.compile(
    "|".join(
        (rf"\b{re.escape(text)}" if text[0].isalpha() else re.escape(text))
        + (r"\b" if text[-1].isalpha() else "")
        for text in sorted(SWAPS, key=len, reverse=True)
    )
)
NUMBER = re.compile(
    r"(?<![\w.'])(0[xX][0-9a-fA-F.]+(?:[pP][+-]?\d+)?|\d[\d']*\.?\d*(?:[eE][+-]?\d+)?)"
    r"([uUlLfF]*)(?![\w.'])"
)
# What says nothing about the result: comments, texts, and lines for the compiler alone.
SILENT = re.compile(
    r"//[^\n]*|/\*.*?\*/|\"(?:\\.|[^\"\\\n])*\"|'(?:\\.|[^'\\\n])+'"
    r"|^[ \t]*(?:#(?:\\\n|[^\n])*|(?:using|template|static_assert|extern)\b[^;{]*[;{])",
    re.DOTALL | re.MULTILINE,
)


def masked(text):
    """The text with blanks that no pattern fits where it says nothing."""
    return SILENT.sub(lambda found: re.sub(r"[^\n]", "\0", found.group()), text)


def othernumbers(text, suffix):
    """What a literal may become: a neighbour, the double, a hundredth more."""
    if re.fullmatch(r"0[xX][0-9a-fA-F]+|\d[\d']*", text) and "f" not in suffix.lower():
        octal = text[0] == "0" and text.isdecimal() and len(text) > 1
        value = int(text.replace("'", ""), 8 if octal else 0)
        shown = "0{:o}" if octal else "{}"
        return [shown.format(v) for v in (value + 1, value - 1) if v >= 0]
    hexadecimal = text[:2].lower() == "0x"
    value = float.fromhex(text) if hexadecimal else float(text.replace("'", ""))
    if value == 0.0:
        return ["1.0"]
    others = [2.0 * value, 1.01 * value, math.nextafter(value, math.inf)]
    return [other.hex() if hexadecimal else repr(other) for other in others]


def sitesof(path):
    """All single changes of a file, place by place."""
    text = masked((TREE / path).read_text())
    for found in SWAP.finditer(text):
        yield [Site(path, found.start(), found.group(), new) for new in SWAPS[found.group()]]
    for found in NUMBER.finditer(text):
        number, suffix = found.groups()
        yield [
            Site(path, found.start(), number + suffix, new + suffix)
            for new in othernumbers(number, suffix)
        ]


def copytree():
    """Brings the copy up to date; files that are the same keep their dates, for ninja."""
    listing = ["git", "ls-files", "-z", "-co", "--exclude-standard"]
    names = subprocess.run(listing, cwd=ROOT, stdout=subprocess.PIPE, check=True).stdout
    wanted = {os.fsdecode(name) for name in names.split(b"\0") if name}
    wanted = {name for name in wanted if (ROOT / name).is_file()}
    for old in list(TREE.rglob("*")):
        if old.is_file() and str(old.relative_to(TREE)) not in wanted:
            old.unlink()
    for name in wanted:
        source, copy = ROOT / name, TREE / name
        if not copy.exists() or copy.read_bytes() != source.read_bytes():
            copy.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(source, copy)


def configure():
    command = ["cmake", "-S", TREE, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release"]
    command += ["-DCMAKE_CXX_FLAGS_RELEASE=-O1", "-DNALVEO_TESTS=ON"]
    if shutil.which("ccache"):
        command += ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"]
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)


def build():
    return quiet(["cmake", "--build", BUILD], seconds=1800)


class Tests:
    """The test programs, which know how long they take without a change."""

    def __init__(self):
        self.programs = executables(BUILD / "tests", "*test*")
        # The library's tests are the fastest way to a failure.
        self.programs.sort(key=lambda path: path.name != "nalveo_tests")
        self.times = {}

    def failure(self):
        """Name of the first test that fails, with how; nothing when all pass."""
        scratch = PLACE / "tmp"
        for program in self.programs:
            shutil.rmtree(scratch, ignore_errors=True)
            scratch.mkdir(parents=True)
            start = time.monotonic()
            most = SLOWEST * self.times[program] + 10 if program in self.times else None
            status, output = quiet(
                [program, "--gtest_fail_fast", "--gtest_brief=1"],
                seconds=most,
                cwd=scratch,
                env={**os.environ, "TMPDIR": str(scratch)},
                preexec_fn=limits,
            )
            self.times.setdefault(program, time.monotonic() - start)
            if status is None:
                return f"{program.name}: time-out"
            if status != 0:
                failed = re.search(rb"\[  FAILED  \] ([^\s,]+)", output)
                return failed.group(1).decode() if failed else f"{program.name}: status {status}"
        return None


def lineof(text, position):
    return text.count("\n", 0, position) + 1


class Change:
    """A change that stands in the copy while the block lasts."""

    def __init__(self, site):
        self.site = site
        self.path = TREE / site.path
        self.before = self.path.read_text()

    def __enter__(self):
        start, end = self.site.start, self.site.start + len(self.site.old)
        assert self.before[start:end] == self.site.old
        self.path.write_text(self.before[:start] + self.site.new + self.before[end:])

    def __exit__(self, *_):
        self.path.write_text(self.before)

    def line(self):
        number = lineof(self.before, self.site.start)
        return self.before.splitlines()[number - 1].strip()

    def __str__(self):
        number = lineof(self.before, self.site.start)
        old, new = self.site.old.strip(), self.site.new.strip() or "(none)"
        return f"{self.site.path}:{number}: {old} -> {new} in: {self.line()}"


def verdict(tests, folder, waves, expected):
    """What becomes of the change that stands in the copy, and the details."""
    status, _ = build()
    if status != 0:
        return "does not build", ""
    failed = tests.failure()
    if failed:
        return "noticed", failed
    now = outputs(folder, waves, TREE, BUILD)
    differing = [arguments for arguments, digest in expected.items() if now[arguments] != digest]
    if differing:
        return "SURVIVES", f"{len(differing)} of {len(expected)} outputs differ: {differing[0]}"
    return "no output changes", ""


def again(log):
    """The survivors of a log whose lines still stand in the source."""
    for text in pathlib.Path(log).read_text().splitlines():
        entry = json.loads(text)
        if entry["verdict"] not in ("SURVIVES", "no output changes"):
            continue
        content = (TREE / entry["path"]).read_text() if (TREE / entry["path"]).exists() else ""
        positions = []
        for found in re.finditer(r"^[^\n]*$", content, re.MULTILINE):
            if found.group().strip() == entry["line"]:
                indent = len(found.group()) - len(found.group().lstrip())
                positions.append(found.start() + indent + entry["column"])
        if not positions:
            print(f"gone: {entry['path']}: {entry['line']}", flush=True)
        for start in positions:
            yield Site(entry["path"], start, entry["old"], entry["new"])


def single(path, old, new):
    text = (TREE / path).read_text()
    if text.count(old) != 1:
        sys.exit(f"mutants: {old!r} stands {text.count(old)} times in {path}")
    return Site(path, text.index(old), old, new)


def draw(args):
    """Changes in random order; of those at one place, one."""
    paths = sorted(
        str(path.relative_to(TREE))
        for path in (TREE / "src").rglob("*")
        if path.suffix in (".cpp", ".h")
    )
    if args.paths:
        wanted = tuple(path.rstrip("/") for path in args.paths)
        paths = [p for p in paths if any(p == w or p.startswith(w + "/") for w in wanted)]
    places = [place for path in paths for place in sitesof(path)]
    randoms = random.Random(args.seed)
    randoms.shuffle(places)
    return [randoms.choice(place) for place in places]


def arguments():
    parser = argparse.ArgumentParser(
        description=__doc__, formatter_class=argparse.RawTextHelpFormatter, allow_abbrev=False
    )
    parser.add_argument("paths", metavar="PATH", nargs="*", help="as src/io or src/driver/main.cpp")
    parser.add_argument("--runs", type=int, default=100, help="changes that build (default 100)")
    parser.add_argument("--seed", type=int, default=1, help="of the draw (default 1)")
    parser.add_argument("--log", metavar="FILE", help="appends a JSON line per change")
    parser.add_argument("--again", metavar="FILE", help="tries the survivors of a log once more")
    parser.add_argument("--change", metavar=("PATH", "OLD", "NEW"), nargs=3, help="one change")
    return parser.parse_args()


def main():
    args = arguments()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(2))
    copytree()
    configure()
    status, output = build()
    if status != 0:
        print(output.decode(errors="replace")[-2000:], "mutants: it does not build", sep="\n")
        return 2
    tests = Tests()
    failed = tests.failure()
    if failed:
        print(f"mutants: {failed} fails without a change")
        return 2
    folder = PLACE / "runs"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    waves = recordings(folder)
    expected = outputs(folder, waves, TREE, BUILD)
    if args.change:
        sites = [single(*args.change)]
    else:
        sites = list(again(args.again)) if args.again else draw(args)
    counts, survivors = collections.Counter(), []
    for site in sites:
        built = counts.total() - counts["does not build"]
        if not (args.again or args.change) and built == args.runs:
            break
        change = Change(site)
        start = time.monotonic()
        with change:
            result, detail = verdict(tests, folder, waves, expected)
        counts[result] += 1
        seconds = time.monotonic() - start
        print(f"{result}: {change} [{detail}] {seconds:.0f} s", flush=True)
        if result in ("SURVIVES", "no output changes"):
            survivors.append(f"{result}: {change} [{detail}]")
        if args.log:
            line = change.before.splitlines()[lineof(change.before, site.start) - 1]
            column = site.start - (change.before.rfind("\n", 0, site.start) + 1)
            entry = {"verdict": result, "detail": detail, "path": site.path, "line": line.strip(),
                     "column": column - (len(line) - len(line.lstrip())), "old": site.old,
                     "new": site.new}  # fmt: skip
            with open(args.log, "a", encoding="utf-8") as log:
                log.write(json.dumps(entry) + "\n")
    return report(counts, survivors)


def report(counts, survivors):
    print("", *sorted(survivors, reverse=True), sep="\n")
    for result, count in counts.most_common():
        print(f"{count:5d} {result}")
    effective = counts["noticed"] + counts["SURVIVES"]
    if not effective:
        print("mutants: nothing was changed that matters")
        return 2
    print(f"{counts['SURVIVES']} of {effective} changes that alter an output survive")
    return 1 if counts["SURVIVES"] >= SHARE * effective else 0


if __name__ == "__main__":
    sys.exit(main())
