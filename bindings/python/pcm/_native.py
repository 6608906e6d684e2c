"""Creates Python functions from prototypes and their conditions, which are checked before each call."""
from __future__ import annotations

import functools
import inspect
import operator
import os
import re
import types
from pathlib import Path
from typing import Any, Callable, TypeVar

import cffi
import numpy as np
import numpy.typing as npt

Array = npt.NDArray[np.float32]
Function = TypeVar("Function", bound=Callable[..., Any])


class ContractError(ValueError):
    """A call violated a contract. The library was not called, because it would have ended the process."""

    def __init__(self, function: str, condition: str) -> None:
        super().__init__(f"{function}: {condition}")
        self.function = function
        self.condition = condition


# ---- interface.h: declarations for cffi, and conditions

_text = Path(__file__).with_name("interface.h").read_text()
_declaration = re.compile(r"^(?!typedef)(static )?([^/\s][^;{}]*?)(\w+)\( ([^;]*?) \);\n((?:    //.*\n)*)", re.M)


def _fits(number: int, bits: int = 64) -> bool:
    return -(1 << bits - 1) <= number < 1 << bits - 1


def _opened(pkt: Any, idx: int, frames: int) -> Any:
    grown = frames if idx <= pkt.frames else 0
    return types.SimpleNamespace(frames=pkt.frames + grown, channels=pkt.channels)


_names: dict[str, Any] = {
    "broken": ContractError,
    "opened": _opened,
    "KIT_INT_ADD_OK": lambda a, b: _fits(a + b),
    "KIT_INT_SUB_OK": lambda a, b: _fits(a - b),
    "KIT_INT_MUL_OK": lambda a, b: _fits(a * b),
    "KIT_INT_TO_SIGNED_INT_CONV_OK": lambda a: _fits(a, 32),
    "KIT_INT_TO_SIGNED_LONG_CONV_OK": lambda a: _fits(a, 32),
    "PCM_FILTER_TYPE_OK": lambda type: 0 <= type <= 6,
    "PCM_SRC_TYPE_OK": lambda type: 0 <= type <= 4,
    "kitRealIsNan": lambda real: real != real,
    "kitRealIsFinite": lambda real: real - real == 0,
    "pcmPacketChannels": lambda pkt: pkt.channels,
    "pcmEncodingSizeofSample": lambda encoding: lib.pcmEncodingSizeofSample(encoding),
}


def _to_python(expression: str, parameters: list[str]) -> str:
    """Translates a C expression to Python, in which handles are objects with attributes."""
    text = re.sub(r"\(\*(\w+)\)", r"\1", expression).replace("KIT_SIZEOF( PCM_SAMPLE )", "4")
    text = re.sub(r"(\w+)->(fix)?(\w+)", lambda m: f"{m[1]}.{m[3].lower() if m[2] else m[3]}"
                  if m[1] in parameters else m[3], text)  # of an object that isn't there yet: what it will hold
    text = text.replace(" / ", " // ").replace("||", "or").replace("&&", "and")
    return re.sub(r"!(?!=)", "not ", text)


def _check_of(name: str, parameters: list[str], comments: str) -> Callable[..., None]:
    """Returns a function that raises ContractError for the first condition that its arguments violate."""
    lines = []
    for piece in re.sub(r"\n? *// ", "; ", comments).strip("; \n").split("; "):
        guard, _, piece = piece.rpartition(": ")
        handed, given = re.fullmatch(r"(\w+)\( .* \)", piece), re.fullmatch(r"(\w+) = (.*)", piece)
        if handed and handed[1] in _tested:
            line = f"check_{_to_python(piece, parameters)}"
        elif given:
            line = f"{given[1]} = {_to_python(given[2], parameters)}"
        else:
            line = f"if not ({_to_python(piece, parameters)}): raise broken({name!r}, {piece!r})"
        lines.append(f"    {_to_python(guard, parameters)}: {line}\n" if guard else f"    {line}\n")
    exec(f"def check_{name}({', '.join(parameters)}):\n{''.join(lines)}", _names)
    check: Callable[..., None] = _names[f"check_{name}"]
    return check


ffi = cffi.FFI()
_tested = {name for _, _, name, _, comments in _declaration.findall(_text) if comments}
checks: dict[str, Callable[..., None]] = {}
parameters_of: dict[str, list[tuple[str, str]]] = {}
for _static, _result, _name, _list, _comments in _declaration.findall(_text):
    _parameters = [] if _list == "void" else re.findall(r"\s*(.*?)(\w+)(?:,|$)", _list)
    parameters_of[_name] = [(kind.replace("PCM_SAMPLE", "float").replace("PCM_ENCODING", "uint64_t").strip(), name)
                            for kind, name in _parameters]
    if _comments:
        checks[_name] = _check_of(_name, [name for _, name in _parameters], _comments)
ffi.cdef(re.sub(r"^static [^;]*;", "", _text, flags=re.M))
lib: Any = ffi.dlopen(os.environ.get("PCM_LIBRARY") or "libpcm.so.4")
lib.kitModuleStartup(lib.pcmModule())


# ---- Objects

class Handle:
    """Owns one reference to an object of the library. Use it from only one thread at a time."""

    _prefix = ""
    _classes: dict[str, type] = {}

    def __init_subclass__(cls, c_type: str = "", prefix: str = "") -> None:
        if not c_type:  # a host's own class
            return
        cls._prefix = prefix
        Handle._classes[c_type] = cls
        own = {name: value for base in reversed(cls.__mro__[:-2]) for name, value in vars(base).items()}
        for name, value in bind(dict(own), prefix, "pcm").items():
            if value is not own[name]:
                setattr(cls, name, value)

    def _take(self, pointer: Any) -> None:
        release = getattr(lib, f"{self._prefix}Release")
        # A change of a shared object replaces the handle in the box. The last handle is released.
        self._box = ffi.gc(ffi.new(f"{ffi.typeof(pointer).cname} *", pointer), lambda box: release(box[0]))

    @classmethod
    def _of(cls, pointer: Any) -> Any:
        if not pointer:
            return None
        made = cls.__new__(cls)
        made._take(pointer)
        return made

    def __str__(self) -> str:
        return _text_of(lib.kitObjToString(ffi.cast("KIT_OBJ *", self._box[0])))

    def __copy__(self) -> Any:
        """Adds a reference to the same object. Values are copied when one of the two is changed."""
        return self._of(getattr(lib, f"{self._prefix}Retain")(self._box[0]))

    def _view(self, pointer: Any, shape: tuple[int, ...]) -> Array:
        count = int(np.prod(shape, dtype=object))
        held, release = getattr(lib, f"{self._prefix}Retain")(self._box[0]), getattr(lib, f"{self._prefix}Release")
        block = ffi.gc(ffi.cast("char *", pointer), lambda _: release(held))
        return np.frombuffer(memoryview(ffi.buffer(block, 4 * count)).toreadonly(), np.float32).reshape(shape)


# ---- Conversion of arguments and results

def _held(pointer: Any) -> Any:
    return ffi.gc(pointer, lambda obj: lib.kitObjRelease(ffi.cast("KIT_OBJ *", obj)))


def _buffer_from(data: Any) -> Any:
    view = ffi.from_buffer(data)
    memory = lib.kitMemAlloc(len(view))
    ffi.memmove(memory, view, len(view))
    return _held(lib.kitBufferCreateFromBytesUse(memory, len(view)))


def _bytes_of(buffer: Any) -> bytes | None:
    if not buffer:
        return None
    buffer = _held(buffer)
    length = lib.kitBufferLength(buffer)
    return bytes(ffi.buffer(lib.kitBufferBacking(buffer), length)) if length else b""


def _string_from(text: str) -> Any:
    encoded = str.encode(text)
    return _held(lib.kitStringCreateFromCstr(encoded, len(encoded)))


def _text_of(string: Any) -> str:
    string = _held(string)
    return str(ffi.buffer(lib.kitStringBacking(string), lib.kitStringLength(string))[:], "utf-8")


def _writable(array: Any) -> Array:
    if not (isinstance(array, np.ndarray) and array.dtype == np.float32 and array.flags.c_contiguous
            and array.flags.writeable):
        raise TypeError("a block to write to is a writable, contiguous array of float32")
    return array


def _rows(array: Array, holder: Any) -> int:
    """Returns the number of frames in an array: its rows, or its samples divided by the channels of the writer."""
    if not isinstance(holder, Handle):
        return array.shape[0]
    if array.size % holder.channels:  # type: ignore[attr-defined]
        raise ValueError(f"{array.size} samples are no whole frames of {holder.channels} channels")  # type: ignore
    return array.size // holder.channels  # type: ignore


_sizes: dict[str, Callable[[Array, Any], int]] = {
    "samples": lambda array, _: array.size,
    "length": lambda array, _: array.size,
    "channels": lambda array, _: array.shape[-1],
    "frames": _rows,
}


def _accept(kind: str) -> Callable[[Any], Any]:
    """Converts an argument for a C type to the form that the checks use."""
    if kind.startswith("PCM_"):
        def accept(value: Any) -> Any:
            expected = Handle._classes[kind.strip(" *")]
            if value is not None and not isinstance(value, expected):
                raise TypeError(f"{expected.__name__} expected, not {type(value).__name__}")
            return value
        return accept
    accepts: dict[str, Callable[[Any], Any]] = {
        "double": float,
        "float *": _writable,
        "const float *": lambda array: np.ascontiguousarray(array, np.float32),
        "KIT_BUFFER *": lambda data: None if data is None else _buffer_from(data),
        "KIT_STRING *": lambda text: None if text is None else _string_from(text),
    }
    return accepts.get(kind, operator.index)


def _to_c_of(kind: str) -> Callable[[Any], Any]:
    if kind.startswith("PCM_"):
        return (lambda handle: handle._box) if kind.endswith("**") else (lambda handle: handle._box[0])
    return (lambda array: ffi.from_buffer("float[]", array)) if "float" in kind else (lambda value: value)


_from_c: dict[str, Callable[[Any], Any]] = {
    "KIT_BUFFER *": _bytes_of,
    "KIT_STRING *": _text_of,
    "int32_t": bool,
}


def native(name: str) -> Callable[[Function], Function]:
    """Decorates a Python function, of which only the signature is used, so that it calls a function of the library.

    The parameters are those of the prototype. After an array, those that tell its size are taken from it.
    """
    function, kinds = getattr(lib, name), parameters_of[name]
    result = ffi.typeof(function).result.cname
    from_c = _from_c.get(result, lambda value: value)
    if result.startswith("PCM_"):
        from_c = lambda pointer: Handle._classes[result.strip(" *")]._of(pointer)  # type: ignore[attr-defined]
    arrays = [place for place, (kind, _) in enumerate(kinds) if kind.endswith("float *")]
    steps = []
    for place, (kind, parameter) in enumerate(kinds):
        is_size = arrays and arrays[0] < place and parameter in _sizes
        steps.append((_sizes[parameter] if is_size else None, _accept(kind), _to_c_of(kind)))

    def values_of(args: tuple[Any, ...]) -> list[Any]:
        values: list[Any] = []
        given = iter(args)
        for size, accept, _ in steps:
            values.append(size(values[arrays[0]], values[0]) if size else accept(next(given)))
        return values

    def decorate(declared: Function) -> Function:
        signature = inspect.signature(declared)
        is_new = declared.__name__ == "__init__"

        @functools.wraps(declared)
        def call(*args: Any, **kwargs: Any) -> Any:
            if kwargs or len(args) != len(signature.parameters):
                args = signature.bind(*args, **kwargs).args
            values = values_of(args[is_new:])
            if name in checks:
                checks[name](*values)
            given = [ffi.NULL if value is None else convert(value) for (_, _, convert), value in zip(steps, values)]
            return args[0]._take(function(*given)) if is_new else from_c(function(*given))

        if len(steps) == 1 and name not in checks and kinds[0][0].startswith("PCM_") and "**" not in kinds[0][0]:
            call = functools.wraps(declared)(lambda self: from_c(function(self._box[0])))  # what checks ask often
        conditions = re.findall(rf"\b{name}\([^;]*;\n((?:    //.*\n)*)", _text)[0].replace("    // ", "    ")
        call.__doc__ = f"{declared.__doc__ or ''}\n\nCalls {name}.".strip()
        if conditions:
            call.__doc__ += f" Raises ContractError unless\n\n{conditions}"
        return call  # type: ignore[return-value]

    return decorate


def bind(names: dict[str, Any], *prefixes: str) -> dict[str, Any]:
    """Binds the functions whose names match functions of the library."""
    for name, value in names.items():
        declared = getattr(value, "fget", None) or getattr(value, "__func__", value)
        camel = "Create" if name == "__init__" else "".join(word.capitalize() for word in name.split("_"))
        found = [prefix + camel for prefix in prefixes if prefix + camel in parameters_of]
        if inspect.isfunction(declared) and found:
            call = native(found[0])(declared)
            names[name] = call if value is declared else type(value)(call)
    return names
