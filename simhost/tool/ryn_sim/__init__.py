"""ryn-sim: makes, shows and changes simulated hosts."""
