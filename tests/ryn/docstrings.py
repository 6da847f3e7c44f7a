"""Runs the examples in the package's docstrings; prints what fails."""

import doctest
import importlib
import pkgutil

import ryn

tried = 0
for module in pkgutil.iter_modules(ryn.__path__):
    result = doctest.testmod(importlib.import_module(f"ryn.{module.name}"))
    tried += result.attempted
assert tried > 20, tried
