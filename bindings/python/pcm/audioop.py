"""The module `audioop`, which Python 3.13 removed: the same functions, results and exceptions.

`import pcm.audioop as audioop`, or call `install()` before other packages import it.
"""

import importlib.util
import sys
from types import ModuleType

from ._pcm import _audioop

__all__ = [
    "add", "adpcm2lin", "alaw2lin", "avg", "avgpp", "bias", "byteswap", "cross", "error", "findfactor", "findfit",
    "findmax", "getsample", "lin2adpcm", "lin2alaw", "lin2lin", "lin2ulaw", "max", "maxpp", "minmax", "mul", "ratecv",
    "reverse", "rms", "tomono", "tostereo", "ulaw2lin",
]

globals().update({name: getattr(_audioop, name) for name in __all__})


def install() -> ModuleType:
    """Make `import audioop` find this module where the interpreter has none, and return the module that it finds."""
    if "audioop" not in sys.modules and importlib.util.find_spec("audioop") is None:
        sys.modules["audioop"] = sys.modules[__name__]
    return importlib.import_module("audioop")
