"""The module `audioop`, which Python 3.13 removed: the same functions, results and exceptions.

`import pcm.audioop as audioop`, or call `install()` before other packages import it.
"""

import importlib.util
import sys
from types import ModuleType

from ._pcm import _audioop

globals().update({name: value for name, value in vars(_audioop).items() if not name.startswith("_")})

__all__ = sorted(name for name in vars(_audioop) if not name.startswith("_"))


def install() -> ModuleType:
    """Make `import audioop` find this module where the interpreter has none, and return the module that it finds."""
    if "audioop" not in sys.modules and importlib.util.find_spec("audioop") is None:
        sys.modules["audioop"] = sys.modules[__name__]
    return importlib.import_module("audioop")
