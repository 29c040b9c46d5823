"""Speech analysis for vocoders: f0, mel-warped cepstra, maximum voiced frequency.

>>> import nalveo
>>> f0, mcep, mvf = nalveo.analyze([0.0] * 16000, 16000)
>>> mcep.shape
(200, 40)
"""

from . import metrics as metrics
from ._analysis import Analysis, analyze, f0, f0_from_log, log_f0, mcep, mvf, refine_f0
from ._envelope import envelope, mcep_to_spectrum
from ._files import read, read_pitchtier, write, write_pitchtier
from ._grid import to_grid
from ._library import version as _version
from ._synthesis import synthesize

__version__ = _version()

__all__ = ["Analysis", "analyze", "envelope", "f0", "f0_from_log", "log_f0", "mcep",
           "mcep_to_spectrum", "mvf", "read", "read_pitchtier", "refine_f0", "synthesize",
           "to_grid", "write", "write_pitchtier"]
