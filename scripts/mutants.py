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
import array
import collections
import hashlib
import json
import math
import os
import pathlib
import random
import re
import resource
import shutil
import signal
import struct
import subprocess
import sys
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
PLACE = ROOT / "build" / "mutants"
TREE = PLACE / "tree"
BUILD = PLACE / "build"
SHARE = 0.1
MEMORY = 3 << 30  # bytes that a changed program may have
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


def limits():
    resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))


def quiet(command, seconds=None, **options):
    """Runs a command in a session of its own: its status, None for a time-out, and its output."""
    with subprocess.Popen(
        command,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        start_new_session=True,
        **options,
    ) as process:
        try:
            output, _ = process.communicate(timeout=seconds)
            return process.returncode, output
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            output, _ = process.communicate()
            return None, output
        except BaseException:  # a changed program may never end by itself
            os.killpg(process.pid, signal.SIGKILL)
            raise


def configure():
    command = ["cmake", "-S", TREE, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release"]
    command += ["-DCMAKE_CXX_FLAGS_RELEASE=-O1", "-DNALVEO_TESTS=ON"]
    if shutil.which("ccache"):
        command += ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"]
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL)


def build():
    return quiet(["cmake", "--build", BUILD], seconds=1800)


def executables(folder, pattern):
    return sorted(
        path for path in folder.glob(pattern) if path.is_file() and os.access(path, os.X_OK)
    )


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


# ---------------------------------------------------------------------------------------------
# Outputs of the programs: recordings that bring out what speech brings out, many options.


def wavbytes(samples):
    data = array.array("h", (max(-32768, min(32767, round(s))) for s in samples)).tobytes()
    header = struct.pack("<4sI4s4sIHHIIHH", b"RIFF", 36 + len(data), b"WAVE", b"fmt ", 16, 1, 1,
                         16000, 32000, 2, 16)  # fmt: skip
    return header + struct.pack("<4sI", b"data", len(data)) + data


def buzz(seconds, f0, level=6000.0, noise=0.02, top=7500.0):
    """Harmonics of a gliding f0, falling with frequency, in noise."""
    randoms = random.Random(1)
    samples, phase = [], 0.0
    for n in range(round(seconds * 16000)):
        f = f0(n / 16000)
        phase += 2.0 * math.pi * f / 16000
        x = sum(math.cos(k * phase + k * k) / k for k in range(1, int(min(top, 7900.0) / f) + 1))
        samples.append(level * (x / 2 + noise * randoms.gauss(0.0, 1.0)))
    return samples


def recordings(folder):
    """Writes recordings of a second or less; their names."""
    silence = [0.0] * 2500
    randoms = random.Random(2)
    made = {
        "low": buzz(0.5, lambda t: 70 + 60 * t),
        "high": buzz(0.4, lambda t: 300 + 500 * t, noise=0.1, top=4000),
        "gap": buzz(0.2, lambda t: 120.0) + silence + buzz(0.15, lambda t: 210 - 300 * t) + silence,
        "noise": [3000.0 * randoms.gauss(0.0, 1.0) for _ in range(4000)],
        "quiet": buzz(0.3, lambda t: 140.0, level=20.0),
        "full": [32767.0 if n // 37 % 2 else -32768.0 for n in range(4000)],
        "one": [7.0],
    }
    for name, samples in made.items():
        (folder / f"{name}.wav").write_bytes(wavbytes(samples))
    whole = (ROOT / "examples" / "sample.wav").read_bytes()
    (folder / "speech.wav").write_bytes(
        wavbytes(struct.unpack(f"<{(len(whole) - 44) // 2}h", whole[44:])[8000:32000])
    )
    track = [math.log(130.0 + k % 50) if k % 20 else -1e10 for k in range(80)]
    (folder / "loaded").write_bytes(struct.pack("<80f", *track))
    return ["speech", *made]


OPTIONS = [
    "--ccmeth=0 --f0acc=1",
    "--ccmeth=1",
    "--ccmeth=2 --f0acc=3",
    "--ccmeth=3 --ccord=60",
    "--ccmeth=4 --alpha=-0.3 --zfill=0",
    "--ccmeth=2 --lframe=133 --ccord=24 --f0min=30 --f0max=900",
    "--ccmeth=1 --lframe=200 --alpha=0 --htsscale=0 --f0acc=5 --f0min=100 --f0max=250",
    "--ccmeth=0 --lframe=320 --ccord=0 --alpha=0.6 --f0min=12",
]
ARGUMENTS = [
    "",
    "x",
    "in.wav f c --lframe=0",
    "in.wav f c --ccord=512",
    "in.wav f c --alpha=1",
    "in.wav f c --f0min=0.5",
    "in.wav f c --lframe=010 --ccord=0x10",
    "in.wav f c v w",
    "in.wav f c --indlist=1-3(1",
    "in.wav f f",
    "in?.wav f? c? --indlist=1-3,7,9-11(2)",
    "speech.wav f c v --f0load=1 --f0acc=1",
]


THROUGHPYTHON = """
import hashlib, nalveo, numpy, sys
with open("speech.wav", "rb") as wave:
    x = numpy.frombuffer(wave.read()[44:], "<i2") / 32768
digest = hashlib.sha256()
for rate, options in [
    (16000, {}),
    (16000, dict(method="seevoc", alpha=0.3, order=24, hop_length=100)),
    (16000, dict(refine=3, scale="hts", f0_floor=100, f0_ceil=250)),
    (48000, dict(frame_period=4.0)),
    (8000, dict(f0_floor=-1)),
    (16000, dict(order=512)),
    (16000, dict(alpha=1.0)),
    (1, {}),
]:
    try:
        for track in nalveo.analyze(x, rate, **options)[:3]:
            digest.update(track.astype("<f4").tobytes())
    except Exception as error:
        digest.update(repr(error).encode())
analysis = nalveo.analyze(x, 16000)
levels = nalveo.envelope(analysis[1], 16000)
digest.update(levels.astype("<f4").tobytes())
print(digest.hexdigest())
"""


def outputs(folder, waves):
    """What the programs make of all this: a digest per run."""
    runs = [(f"{wave}.wav f c v {option}", True) for option in OPTIONS for wave in waves]
    runs += [(arguments, False) for arguments in ARGUMENTS]
    digests = {}
    for arguments, synthesise in runs:
        shutil.copy(folder / "loaded", folder / "f")
        digest = hashlib.sha256()
        commands = [[BUILD / "nalveo16", *arguments.split()]]
        if synthesise and (BUILD / "nalveo16-synth").exists():
            common = ("--lframe", "--alpha", "--hts")
            options = [option for option in arguments.split() if option.startswith(common)]
            commands.append([BUILD / "nalveo16-synth", "f", "c", "v", "out.wav", *options])
        for command in commands:
            status, text = quiet(command, seconds=60, cwd=folder, preexec_fn=limits)
            digest.update(f"{status} {len(text)} ".encode() + text)
        for name in ("f", "c", "v", "out.wav"):
            if (folder / name).exists():
                digest.update(name.encode() + (folder / name).read_bytes())
                (folder / name).unlink()
        digests[arguments] = digest.hexdigest()
    if executables(BUILD, "libnalveo.so*"):
        paths = {"PYTHONPATH": TREE / "python", "LD_LIBRARY_PATH": BUILD}
        environment = {**os.environ, **{name: str(path) for name, path in paths.items()}}
        digests["through Python"] = quiet(
            [sys.executable, "-c", THROUGHPYTHON], 60, cwd=folder, env=environment
        )
    return digests


# ---------------------------------------------------------------------------------------------


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
    now = outputs(folder, waves)
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
    expected = outputs(folder, waves)
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
