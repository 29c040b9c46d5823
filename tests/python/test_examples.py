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
        sections = ["Attributes"] if inspect.isclass(thing) else ["Parameters", "Raises", "Examples"]
        for section in sections:
            assert f"\n{section}\n---" in text, name
        if not inspect.isclass(thing):
            for parameter in inspect.signature(thing).parameters:
                assert parameter in text, (name, parameter)
