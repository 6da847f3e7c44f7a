"""ryn-sim: makes, shows and changes simulated hosts."""

VERSION = "1.0.0"
