"""Speech analysis for vocoders: f0, mel-warped cepstra, maximum voiced frequency.

>>> import nalveo
>>> f0, mcep, mvf = nalveo.analyze([0.0] * 16000, 16000)
>>> mcep.shape
(200, 40)
"""

from ._analysis import Analysis, analyze, f0, f0_from_log, log_f0, mcep, mvf, refine_f0
from ._library import version as _version

__version__ = _version()

__all__ = ["Analysis", "analyze", "f0", "f0_from_log", "log_f0", "mcep", "mvf", "refine_f0"]
