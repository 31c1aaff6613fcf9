#!/usr/bin/env python3
"""Writes the type stubs of the package, with a signature of render for each effect: make_stubs.py OUT."""

import keyword
import os
import sys

import velloran

HEAD = '''# Made from the effects; not to be edited.
from collections.abc import Callable, Mapping, Sequence
from typing import Any, Literal, NamedTuple, overload

import numpy
from numpy.typing import ArrayLike, DTypeLike, NDArray

Picture = NDArray[Any]
Clip = ArrayLike | Sequence[Picture] | Callable[[int], Picture]
Number = float | Mapping[int, float]
Numbers = Sequence[float] | Mapping[int, Sequence[float]]
Switch = bool | int | str
Value = Any

class Error(Exception):
    file: str | None
    line: int | None
    column: int | None
    def __init__(self, message: str, file: str | None = ..., line: int | None = ..., column: int | None = ...) -> None: ...

class Aborted(Error): ...

class Message(NamedTuple):
    severity: str
    line: int
    column: int
    text: str
    report: str

def effects() -> list[str]: ...
def describe(effect: str) -> dict[str, Any]: ...
def check(text: str, file: str = ...) -> list[Message]: ...
'''
OPTIONS = ("frame", "first", "length", "fps", "pixel_ratio", "shape", "dtype", "depth", "threads", "text", "file",
           "controls", "params")
TYPES = ("frame: int = ..., first: int | None = ..., length: int | None = ..., fps: float = ..., "
         "pixel_ratio: float = ..., shape: tuple[int, ...] | None = ..., dtype: DTypeLike | None = ..., "
         "depth: int | None = ..., threads: int | None = ..., text: str | None = ..., file: str = ..., "
         "controls: Mapping[str, Value] | None = ..., params: Mapping[str, Value] | None = ...")


def param_type(param):
    kind = param["kind"]
    if kind == "popup":
        labels = [label.split(": ", 1)[-1] for label in param.get("labels", [])]
        return "int | str" if len(param["default"]) == 1 and not labels else (
            "int | Literal[" + ", ".join(map(repr, labels)) + "]" if len(param["default"]) == 1 else "Value")
    if len(param["default"]) > 1:
        return "Numbers"
    return {"float": "Number", "int": "Number", "boolean": "Switch", "button": "Switch", "string": "str"}.get(kind, "Value")


def signature(name, effect):
    inputs = "".join(f", {place}: Clip" for place in (f"input_{i + 1}" for i in range(len(effect["inputs"]))))
    taken, params = set(OPTIONS) | {"effect"}, ""
    for param in effect["params"]:
        word = param["name"]
        if param["kind"] == "label" or not word.isidentifier() or keyword.iskeyword(word) or word in taken:
            continue
        taken.add(word)
        params += f", {word}: {param_type(param)} = ..."
    # Blanks may be written as underscores.
    names = ", ".join(repr(word) for word in dict.fromkeys((name.replace(" ", "_"), name)))
    return (f"@overload\ndef render(effect: Literal[{names}]{inputs}, /, *, {TYPES}{params}) -> Picture: ...\n")


def main(path):
    text = HEAD + f"def frames(effect: str, *inputs: Clip, {TYPES}, **more: Value) -> int: ...\n"
    for family in sorted({name.split(":")[0] for name in velloran.effects()}):
        for effect in velloran.describe(family)["effects"]:
            text += signature(f"{family}:{effect['name']}", effect)
    text += f"@overload\ndef render(effect: str, *inputs: Clip, {TYPES}, **more: Value) -> Picture: ...\n"
    compile(text, path, "exec")
    with open(path + ".part", "w", encoding="utf-8") as file:
        file.write(text)
    os.replace(path + ".part", path)


main(sys.argv[1])
