"""The version, as meson.build has it; a test compares the two."""

VERSION = "1.0.0"
