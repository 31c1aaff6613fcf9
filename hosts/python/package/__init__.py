"""Image effects for compositing.

    import velloran
    soft = velloran.render("blur:Soft_Focus", image, width=0.3)

Pictures are arrays of uint8, uint16, float16 or float32, of the shape (height, width) or (height, width, channels) with
1, 3 or 4 channels, top row first; floats are 1 at white. The result has the type and the shape of the first picture.
"""

import atexit
import collections
import json
import threading
import warnings

import numpy

from . import _velloran

__all__ = ["Aborted", "Error", "check", "describe", "effects", "frames", "render"]


class Error(Exception):
    """Why there is no picture. file, line and column tell where in a text of effects, or are None."""

    def __init__(self, message, file=None, line=None, column=None):
        super().__init__(message)
        self.file, self.line, self.column = file, line, column


class Aborted(Error):
    """The render was given up."""


_velloran.set_errors(Error, Aborted)

_MOST_OPEN = 4  # effects that stay open for the next picture


class _OpenEffects:
    """Opening an effect takes longer than many a picture: the last ones stay open. Each is used by one at a time."""

    def __init__(self):
        self._lock = threading.Lock()
        self._idle = collections.OrderedDict()  # key: (effect, values that it shows)

    def take(self, key, values):
        with self._lock:
            effect, shown = self._idle.pop(key, (None, None))
        if effect is None:
            effect, shown = _velloran.Effect(*key), ()
        elif shown != values:
            effect.reset()
            shown = ()
        if shown != values:
            for is_param, name, text in values:
                (effect.set if is_param else effect.set_control)(name, text)
        return effect

    def give_back(self, key, effect, values):
        with self._lock:
            self._idle[key] = (effect, values)
            old = self._idle.popitem(last=False) if len(self._idle) > _MOST_OPEN else None
        del old  # outside the lock: it waits for its turn

    def close(self):
        with self._lock:
            idle, self._idle = self._idle, collections.OrderedDict()
        idle.clear()


_open_effects = _OpenEffects()
atexit.register(_open_effects.close)


def _value_text(name, value):
    """A value as the command line takes it."""
    if isinstance(value, str):
        return value
    if isinstance(value, (bool, numpy.bool_)):
        return "1" if value else "0"
    if isinstance(value, dict):
        if not value:
            raise Error(f"{name}: there is no key in {{}}")
        return ",".join(f"{_value_text(name, at)}@{int(frame)}" for frame, at in value.items())
    if isinstance(value, numpy.ndarray):
        value = value.tolist()
    if isinstance(value, (list, tuple)):
        return ",".join(_value_text(name, one) for one in value)
    try:
        number = float(value)
    except (TypeError, ValueError):
        raise TypeError(f"{name}: a {type(value).__name__} is no value; give a number, a text, True or False, "
                        "a sequence of them, or a dict of them by frame") from None
    return repr(int(number)) if number.is_integer() and abs(number) < 1e9 else repr(number)


class _Input:
    """A picture, a sequence of them, or a function of the frame's number."""

    def __init__(self, what, given):
        self.what, self._given, self.length, self._kept = what, given, None, (None, None)
        if callable(given):
            self._kind = "function"
            return
        if isinstance(given, (list, tuple)) and len(given) > 0 and numpy.ndim(given[0]) >= 2:
            self._kind, self.length = "sequence", len(given)
            return
        if given is None:
            raise TypeError(f"{what} is None; give an array, a sequence of arrays, or a function of the frame's number")
        try:
            self._given = numpy.asarray(given)
        except ValueError as problem:
            raise TypeError(f"{what}: no array can be made of it: {problem}") from None
        self._kind = "still"
        if self._given.ndim == 4:
            self._kind, self.length = "sequence", len(self._given)
            if not self.length:
                raise ValueError(f"{what} is a sequence without a frame")

    def start(self, first):
        self._first = first

    def __call__(self, frame):
        if self._kind == "still":
            return self._given
        if self._kind == "sequence":
            at = frame - self._first
            if not 0 <= at < self.length:
                raise Error(f"{self.what} has no frame {frame}: it has {self._first} to "
                            f"{self._first + self.length - 1}")
            return self._given[at]
        # The first look at a picture is for its size: it is not asked for twice.
        known, picture = self._kept
        self._kept = (None, None)
        return picture if known == frame else self._given(frame)

    def look(self, frame):
        """The picture of a frame, before the render."""
        picture = numpy.asarray(self(max(frame, self._first) if self.length is None
                                     else min(max(frame, self._first), self._first + self.length - 1)))
        if self._kind == "function":
            self._kept = (frame, picture)
        if picture.dtype == object:
            raise TypeError(f"{self.what} at frame {frame} is no array")
        return picture


def _prepare(effect, inputs, frame, first, length, fps, pixel_ratio, shape, dtype, depth, threads, text, file,
             controls, params, more):
    if not isinstance(effect, str):
        raise TypeError(f"effect is a {type(effect).__name__}; give its name, such as 'blur:Soft_Focus'")
    for name, number in (("frame", frame), ("first", first), ("length", length), ("threads", threads)):
        if number is not None and (isinstance(number, bool) or not hasattr(number, "__index__")):
            raise TypeError(f"{name} is a {type(number).__name__}; give a whole number")
    clips = [_Input(f"input {i + 1}", given) for i, given in enumerate(inputs)]
    # The clip is as the command line takes it: from frame 1 to the frame asked for, unless more is known.
    sequences = [clip.length for clip in clips if clip.length is not None]
    if first is None:
        first = 1 if sequences else min(1, frame)
    if length is None:
        length = max(sequences) if sequences else max(1, frame - first + 1)
    if length < 1:
        raise ValueError(f"length is {length}; a clip has 1 frame or more")
    for clip in clips:
        clip.start(first)
    pictures = [clip.look(frame) for clip in clips]
    if pictures:
        if shape is not None or dtype is not None:
            raise TypeError("shape and dtype are for effects without inputs; the result is like the first picture")
        shape, dtype = pictures[0].shape, pictures[0].dtype
    else:
        shape = (1080, 1920, 3) if shape is None else tuple(shape)
        shape = shape + (3,) if len(shape) == 2 else shape
        dtype = numpy.dtype(numpy.uint8 if dtype is None else dtype)
    if len(shape) not in (2, 3):
        raise ValueError(f"input 1 has the shape {shape}; it must be (height, width) or (height, width, channels)")
    if min(shape[:2]) < 1:
        raise ValueError(f"{'input 1' if pictures else 'shape'}: of the shape {tuple(shape)} nothing can be made")
    if depth is None:
        depth = 8 if all(picture.dtype == numpy.uint8 for picture in pictures) and dtype == numpy.uint8 else 12
    elif depth == 16:
        depth = 12
    values = []
    for is_param, given in ((True, params), (True, more), (False, controls)):
        for name, value in (given or {}).items():
            values.append((is_param, str(name), _value_text(name, value)))
    key = (effect,) if text is None else (text, effect, file)
    key += (int(shape[1]), int(shape[0]), int(depth), int(first), int(length), float(fps), float(pixel_ratio),
            int(threads or 0))
    return clips, shape, dtype, key, tuple(values)


def _name_inputs(told, clips):
    names = told["inputs"]
    if len(clips) < len(names):
        missing = names[len(clips)]
        raise Error(f"input '{missing}' is missing: {told['name']} takes {len(names)} ({', '.join(names)})")
    if len(clips) > len(names):
        listed = f" ({', '.join(names)})" if names else ""
        raise Error(f"{len(clips)} inputs are too many: {told['name']} takes {len(names)}{listed}")
    for clip, name in zip(clips, names):
        clip.what = f"input {name}"
    return [clip.what for clip in clips]


def _warn(effect):
    for text in effect.take_warnings():
        warnings.warn(text, stacklevel=3)


def render(effect, *inputs, frame=1, first=None, length=None, fps=30, pixel_ratio=1, shape=None, dtype=None,
           depth=None, threads=None, text=None, file="text", controls=None, params=None, **more):
    """Renders a frame of an effect and answers it as an array.

    effect: "family:Effect", a path "file.text:Effect", or with text, which holds definitions, a name in it.
    inputs: the pictures that the effect takes. Each is an array (a still), a sequence of arrays (frame first and those
        behind it), or a function that answers the array of a frame's number.
    params: values by the names of the effect's params, also as keywords: a number, a text (a popup's label), a sequence
        for a param of several, or a dict of such values by frame. controls: of the standard controls.
    frame, first, length: the frame's number, that of the clip's first frame, and how many it has.
    shape, dtype: of the result, for effects without inputs. depth: 8, 10 or 12, in place of what fits the pictures.
    """
    clips, shape, dtype, key, values = _prepare(effect, inputs, frame, first, length, fps, pixel_ratio, shape, dtype,
                                                depth, threads, text, file, controls, params, more)
    opened = _open_effects.take(key, values)
    names = _name_inputs(opened.describe(), clips)
    result = numpy.empty(shape, dtype)
    opened.render(int(frame), clips, names, result)
    _warn(opened)
    _open_effects.give_back(key, opened, values)
    return result


def frames(effect, *inputs, frame=1, first=None, length=None, fps=30, pixel_ratio=1, shape=None, dtype=None,
           depth=None, threads=None, text=None, file="text", controls=None, params=None, **more):
    """How many frames come out of the clip; the arguments are those of render."""
    clips, _, _, key, values = _prepare(effect, inputs, frame, first, length, fps, pixel_ratio, shape, dtype, depth,
                                        threads, text, file, controls, params, more)
    opened = _open_effects.take(key, values)
    _name_inputs(opened.describe(), clips)
    return opened.frames()


def effects():
    """The names of all effects, as "family:Effect"."""
    return [f"{family['plugin']}:{name}" for family in json.loads(_velloran.list_json(""))
            for name in family["effects"]]


def describe(effect):
    """What an effect or a family takes, as `velloran list --json` tells it: inputs, params, bounds, labels."""
    return json.loads(_velloran.list_json(effect))


class Message(collections.namedtuple("Message", "severity line column text report")):
    """What is wrong in a text. line and column count from 1, 0 for no place; report is the form that editors read."""

    __slots__ = ()


def check(text, file="text"):
    """Every message about a text of effects, in order; an effect can be used if none is an "error"."""
    def severity(level):
        return "error" if level >= 8 else "warning" if level >= 5 else "note"
    return [Message(severity(level), line, column, words, report)
            for level, line, column, words, report in _velloran.check(text, file)]
