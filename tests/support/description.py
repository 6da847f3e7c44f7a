"""The description of the methods, libryn/reference, for the tests and for scripts that no test runner starts."""

import sys
from pathlib import Path

sys.path.insert(0, str(Path(__file__).parents[2] / "libryn"))

# isort: off
from reference.methods import METHODS as DESCRIPTIONS  # noqa: E402
from reference.model import Field, Idiom, Record  # noqa: E402
from reference.model import Method as Description  # noqa: E402
from reference.records import RECORDS  # noqa: E402

__all__ = ["DESCRIPTIONS", "RECORDS", "Description", "Field", "Idiom", "Record"]
