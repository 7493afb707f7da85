"""What docstrings and the page say is run."""

import doctest
import importlib
import pkgutil

import kestrune
import pytest
from folder import ROOT

FLAGS = doctest.ELLIPSIS | doctest.NORMALIZE_WHITESPACE
MODULES = [importlib.import_module(f"kestrune.{module.name}") for module in pkgutil.iter_modules(kestrune.__path__)]


@pytest.mark.parametrize("module", [kestrune, *MODULES], ids=lambda module: module.__name__)
def test_docstrings(module, doctest_namespace):
    assert doctest.testmod(module, extraglobs=doctest_namespace, optionflags=FLAGS).failed == 0


def test_every_function_has_an_example():
    functions = {name: getattr(kestrune, name) for name in kestrune.__all__ if name[0].islower()}
    assert [name for name, function in functions.items() if ">>>" not in function.__doc__] == []


def test_the_page():
    result = doctest.testfile(str(ROOT / "docs/python.md"), module_relative=False, optionflags=FLAGS, encoding="utf-8")
    assert result.attempted > 10 and result.failed == 0
