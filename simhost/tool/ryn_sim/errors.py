"""The two ways in which a command fails."""


class Failed(Exception):
    """It could not be done: exit code 1."""


class BadInput(Exception):
    """The command line or a description is wrong: exit code 2."""


def nearest(word: str, known) -> str:
    """A clause that names the known word nearest to this one, or lists them all if there are few; else nothing."""
    import difflib

    known = {str(name).lower(): str(name) for name in known}
    close = difflib.get_close_matches(str(word).lower(), known, n=1, cutoff=0.6)
    if close:
        return f'; did you mean "{known[close[0]]}"?'
    if 0 < len(known) <= 12:
        return "; known: " + ", ".join(known.values())
    return ""
