"""The documents name only files that exist: relative links, and paths of the tree in backticks."""

import re
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
PAGES = sorted([*ROOT.glob("*.md"), *ROOT.glob("*/*.md")])
FOLDERS = sorted(entry.name for entry in ROOT.iterdir() if entry.is_dir() and not entry.name.startswith("."))

LINK = re.compile(r"!?\[[^\]]*\]\(([^)\s]+)\)")
QUOTED = re.compile(r"`([\w.*/-]+/[\w.*/-]*)`")


def prose(page: Path) -> str:
    """The page without its fenced examples, whose output may look like a link or a path."""
    return re.sub(r"^```.*?^```", "", page.read_text(), flags=re.M | re.S)


def anchors(page: Path) -> set[str]:
    """The anchors of the headings, made as hosting sites make them."""
    headings = re.findall(r"^#+ +(.*)$", prose(page), flags=re.M)
    return {re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-") for heading in headings}


def dead_links(page: Path) -> list[str]:
    dead = []
    for link in LINK.findall(prose(page)):
        if re.match(r"[a-z]+:", link):
            continue
        name, _, anchor = link.partition("#")
        target = page.parent / name if name else page
        if not target.exists() or (anchor and anchor not in anchors(target)):
            dead.append(link)
    return dead


def missing_paths(page: Path) -> list[str]:
    """Paths that begin with a folder of the tree and lead nowhere; * and a NAME in capitals stand for any name."""
    missing = []
    for path in QUOTED.findall(prose(page)):
        if path.split("/")[0] not in FOLDERS or path.startswith("build"):
            continue
        pattern = re.sub(r"\b[A-Z]+\b(?!\.md)", "*", path.rstrip("/"))
        if not any(any(base.glob(pattern)) for base in (ROOT, page.parent)):
            missing.append(path)
    return missing


@pytest.mark.parametrize("page", PAGES, ids=lambda page: str(page.relative_to(ROOT)))
def test_links_and_paths_lead_to_something(page: Path) -> None:
    assert dead_links(page) == []
    assert missing_paths(page) == []


def test_what_leads_nowhere_is_found(tmp_path: Path) -> None:
    page = tmp_path / "page.md"
    page.write_text("# One\n[a](page.md#one) [b](page.md#two) [c](none.md) `docs/none.md` `docs/*.md`\n")
    assert dead_links(page) == ["page.md#two", "none.md"]
    assert missing_paths(page) == ["docs/none.md"]
