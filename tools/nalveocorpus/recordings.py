"""Recordings: found below a folder, read, and converted by sox where they are not plain."""

import collections
import os
import re
import shlex
import shutil
import subprocess
import threading

import numpy as np

from nalveowav import DAMAGED, Foreign, Wrong, read_plain

from .settings import NATIVE, Unfit, shown
from .state import FOLDER

PLAIN_RATE = 16000  # Hz
SOX = ("sox", "-R", "-G", "--no-glob")  # the same dither each time; no clipping by the filter
# Endings that sox reads by header; its headerless and textual kinds say too little of themselves.
AUDIO = set("8svx aif aifc aiff aiffc amb amr-nb amr-wb anb au avr awb caf cvsd fap flac fssd gsm "
            "hcom htk ima ircam la lpc10 maud mat mat4 mat5 mp2 mp3 nist oga ogg opus paf prc pvf "
            "rf64 sd2 sds sf smp snd sndr sndt sou sox sph spx tta txw voc vorbis vox w64 wavpcm "
            "wv wve xa xi".split())
# Ends a child even where its parent is killed (Debian: util-linux, which is always there).
TIED = ("setpriv", "--pdeathsig", "TERM") if shutil.which("setpriv") else ()


# Finding ------------------------------------------------------------------------------------------


class Found:
    """What lies below a folder.

    files   names of recordings, relative to it, in order
    lost    what could not be looked into, by name, with the reason
    passed  number of files passed over, by ending
    """

    def __init__(self, folder, convert):
        self.files, self.lost, self.passed = [], {}, collections.Counter()
        self._convert = convert
        self._waiting = [(folder, "", ())]  # folders with the marks of those above them
        while self._waiting:
            self._look(*self._waiting.pop())
        self.files.sort(key=os.fsencode)

    def _look(self, path, relative, above):
        try:
            here = os.stat(path)
            mark = (here.st_dev, here.st_ino)
            if mark in above:
                raise OSError(None, "it leads back to a folder above it")
            entries = list(os.scandir(path))
        except OSError as error:
            self.lost[relative or path] = f"It could not be read: {error.strerror}."
            return
        owners = {}
        for entry in entries:
            name = relative + entry.name
            try:
                if entry.is_dir():
                    if entry.name != FOLDER:
                        self._waiting.append((entry.path, name + "/", (*above, mark)))
                elif entry.is_file():
                    self._file(name, owners)
                elif entry.is_symlink():
                    os.stat(entry.path)  # not of a kind that is analysed, or:
            except FileNotFoundError:
                self.lost[name] = "The link leads nowhere."
            except OSError as error:
                self.lost[name] = f"It could not be read: {error.strerror}."

    def _file(self, name, owners):
        stem, ending = os.path.splitext(name)
        ending = ending[1:].lower()
        if ending == "wav" or (self._convert and ending in AUDIO):
            other = owners.setdefault(stem, name)
            if other is not name:
                first, second = map(shown, sorted((name, other)))
                raise Unfit(f"{first} and {second} would have the same results.")
            self.files.append(name)
        else:
            self.passed[ending] += 1

    def passed_over(self):
        """A line about what is passed over, or nothing."""
        if not self.passed:
            return ""
        kinds = [f"{count} .{ending}" if ending else f"{count} without an ending"
                 for ending, count in sorted(self.passed.items())]
        line = "Passed over: " + ", ".join(kinds) + "."
        takes = sum(self.passed[ending] for ending in self.passed if ending in AUDIO)
        return line + (f" --convert would take {takes} of them." if takes else "")


# Reading ------------------------------------------------------------------------------------------


class Recording:
    """Samples of a recording, and what it was before.

    samples    [n] from -1 to 1
    rate       of the samples, Hz
    source     (rate, channels, bits) of the file
    converted  whether sox was at work
    warnings   for the user
    """

    def __init__(self, samples, rate, source, converted, warnings):
        self.samples, self.rate, self.source = samples, rate, source
        self.converted, self.warnings = converted, warnings


class Reader:
    """Reads recordings in the way that the command line asks for."""

    def __init__(self, convert, channel, rate):
        self._convert, self._channel, self._rate = convert, channel, rate
        self._running, self._lock, self._stopped = set(), threading.Lock(), False

    def read(self, path):
        """A recording, or `Wrong` with the reason."""
        try:
            samples = read_plain(path)
        except Foreign as refusal:
            if not self._convert:
                raise Wrong(f"Error: could not open {path}.\n{self._reason(path)}") from refusal
            return self._converted(path)
        except Wrong as error:
            raise Wrong(f"Error: {error}\n{self._reason(path)}") from error
        if self._channel not in (None, 1):
            raise Wrong(f"It has 1 channel, and --channel is {self._channel}.")
        return Recording(samples, PLAIN_RATE, (PLAIN_RATE, 1, 16), False, [])

    def stop(self):
        """Ends what runs; no more is begun."""
        with self._lock:
            self._stopped = True
            for process in self._running:
                process.kill()

    def _run(self, *command):
        """Output, errors and status of a program, which is ended when this one is stopped."""
        with self._lock:
            if self._stopped:
                raise OSError("the run was stopped")
            process = subprocess.Popen([*TIED, *command], stdin=subprocess.DEVNULL,
                                       stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                       env={**os.environ, "LC_ALL": "C"})
            self._running.add(process)
        try:
            output, said = process.communicate()
        finally:
            with self._lock:
                self._running.discard(process)
        return output, said.decode(errors="replace").strip(), process.returncode

    def _kind(self, path):
        """Rate, channels, bits and coding of a file as sox sees them, or `Wrong`."""
        if os.path.getsize(path) == 0:
            raise Wrong("The file is empty.")
        output, said, status = self._run("sox", "--i", "-V1", path)
        text = output.decode(errors="replace")
        fields = dict(re.findall(r"^(\w[\w ]*?) *: (.*)$", text, re.M))
        if status or not {"Sample Rate", "Channels", "Precision"} <= fields.keys():
            raise Wrong(f"sox cannot read it either: {said.rsplit(': ', 1)[-1]}")
        # A few formats have rates such as 16666.7 Hz.
        return (round(float(fields["Sample Rate"])), int(fields["Channels"]),
                int(re.match(r"\d+", fields["Precision"])[0]), fields.get("Sample Encoding", ""))

    def _reason(self, path):
        """Why a file is refused, and the line that would mend it."""
        if not shutil.which("sox"):
            return "It must be WAV, mono, 16000 Hz, 16 bits, without extra chunks."
        try:
            rate, channels, bits, coding = self._kind(path)
        except Wrong as error:
            return str(error)
        if "Premature EOF" in self._run("sox", "--no-glob", path, "-n")[1]:
            return "It ends before the samples that its header promises."
        faults = [fault for fault, there in (
            (f"{rate} Hz", rate != PLAIN_RATE), (f"{channels} channels", channels != 1),
            (f"{bits} bits", bits != 16), (coding, "Signed Integer PCM" not in coding)) if there]
        what = ", ".join(faults) or "a header with more in it than the plain one"
        line = [*SOX, path, "-c", "1", "-b", "16", os.path.splitext(path)[0] + ".16k.wav", "rate",
                "-v", str(PLAIN_RATE)]
        return f"It has {what}. Mend it with --convert, or:\n{shlex.join(line)}"

    def _converted(self, path):
        rate, channels, bits, _ = self._kind(path)
        if self._channel is not None and self._channel > channels:
            raise Wrong(f"It has {channels} channel{'s'[:channels - 1]}, and --channel is "
                        f"{self._channel}.")
        native = self._rate == NATIVE
        depth, effects = (32, []) if native else (16, ["rate", "-v", str(PLAIN_RATE)])
        mixed = ["-c", "1"]
        if self._channel is not None:
            mixed, effects = [], ["remix", str(self._channel), *effects]
        # -V3 has sox tell by how much -G had to lower the level, among much else.
        output, said, status = self._run(*SOX, "-V3", path, "-t", "raw", "-e", "signed", "-b",
                                         str(depth), *mixed, "-", *effects)
        warnings = re.findall("^sox (?:WARN|FAIL) .*$", said, re.M)
        if status or DAMAGED.search(said):
            raise Wrong("\n".join(warnings) or said or f"sox ended with status {status}.")
        if not output:
            raise Wrong("It holds no samples.")
        lowered = re.search(r"^sox INFO gain: (\S+?) ?dB not reclaimed", said, re.M)
        if lowered:
            warnings.append(f"Lowered by {lowered[1]} dB, level and c(0) with it: it would have "
                            "clipped in the conversion.")
        if rate < PLAIN_RATE and not native:
            warnings.append(f"Widened from {rate} Hz: there is nothing above {rate // 2} Hz.")
        if channels > 1 and self._channel is None:
            warnings += self._silent(path)
        samples = np.frombuffer(output, f"<i{depth // 8}") / 2.0 ** (depth - 1)
        return Recording(samples, rate if native else PLAIN_RATE, (rate, channels, bits), True,
                         warnings)

    def _silent(self, path):
        """A warning for channels that hold nothing, while others do."""
        _, said, _ = self._run("sox", "--no-glob", path, "-n", "stats")
        peaks = re.search(r"^Pk lev dB +\S+ +(.*)$", said, re.M)
        silent = [str(number) for number, peak in enumerate(peaks[1].split() if peaks else (), 1)
                  if peak == "-inf"]
        if not silent or len(silent) == len(peaks[1].split()):
            return []
        return [f"Channel {' and '.join(silent)} is silent; --channel takes another."]
