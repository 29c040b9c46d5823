"""What the docstrings show, and that every public name has one in full."""

import doctest
import inspect
import sys

import nalveo


def test_docstrings():
    modules = [module for name, module in sorted(sys.modules.items())
               if name.split(".")[0] == "nalveo"]
    results = [doctest.testmod(module) for module in modules]
    assert sum(result.failed for result in results) == 0
    assert sum(result.attempted for result in results) > 30


def test_every_public_function_is_documented():
    for name in nalveo.__all__:
        thing = getattr(nalveo, name)
        text = inspect.getdoc(thing)
        record = inspect.isclass(thing)
        for section in ["Attributes"] if record else ["Parameters", "Raises", "Examples"]:
            assert f"\n{section}\n---" in text, name
        for parameter in () if record else inspect.signature(thing).parameters:
            assert parameter in text, (name, parameter)
