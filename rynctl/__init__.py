"""The command line of a host's fast-path virtual switch. docs/rynctl.md is the guide."""
