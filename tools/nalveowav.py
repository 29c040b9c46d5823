"""WAV files as all tools read them: what the analyser takes, and what is wrong with the rest."""

import re
import struct

import numpy as np

FS = 16000  # Hz
# Where a recording is cut or damaged, sox goes on with what it has got, and tells so in words only.
DAMAGED = re.compile(r"(^|\n)sox FAIL |Premature EOF|MD5 checksum mismatch")


class Wrong(Exception):
    """What is wrong with the input, for the user."""


class Foreign(Wrong):
    """A recording that the analyser does not take as it is, but that another program may read."""


def read_plain(path):
    """Samples of a mono 16 kHz 16-bit WAV file, -1 <= x < 1; takes what the analyser takes."""
    return read_at_rate(path, (FS,), f"{FS} Hz")[0]


def read_at_rate(path, rates, allowed):
    """Samples of a mono 16-bit WAV file, -1 <= x < 1, and its rate, one of some that words tell.

    The RIFF size may be wrong and the format have further bytes, but the samples follow it at once,
    and all of them are there.
    """
    try:
        with open(path, "rb") as file:
            content = file.read()
    except OSError as error:
        raise Wrong(f"could not open {path}: {error.strerror}.") from error
    try:
        riff, kind, tag, size = struct.unpack_from("<4s4x4s4sI", content)
        if (riff, kind, tag) != (b"RIFF", b"WAVE", b"fmt ") or size < 16:
            raise Foreign(f"could not open {path}: it is no WAV file that begins with its format.")
        coding, channels, rate, bits = struct.unpack_from("<HHI6xH", content, 20)
        tag, nbytes = struct.unpack_from("<4sI", content, 20 + size)
    except struct.error as error:
        raise Foreign(f"could not open {path}: it ends within its header.") from error
    if (coding, channels, bits) != (1, 1, 16) or rate not in rates:
        raise Foreign(f"{path} has {channels} channel(s), {rate} Hz, {bits} bits, coding {coding}; "
                      f"it must be mono, {allowed}, 16 bits, coding 1 (PCM).")
    if tag != b"data":
        raise Foreign(f"could not open {path}: its samples do not follow the format at once.")
    if nbytes < 2:
        raise Wrong(f"{path} holds no samples.")
    if len(content) < 28 + size + nbytes:
        raise Wrong(f"could not open {path}: it ends before the samples that its header promises.")
    return np.frombuffer(content, "<i2", nbytes // 2, 28 + size) / 32768.0, rate
