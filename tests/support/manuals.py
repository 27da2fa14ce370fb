"""What stands in the manual pages and the guide, for tests that hold it to the code."""

import dataclasses
import pathlib
import re

TOP = pathlib.Path(__file__).resolve().parent.parent.parent
MANUALS = TOP / "packaging" / "man"
GUIDE = TOP / "docs" / "administration.md"

# Words of mdoc that only say how others look. Fl brings its dash with it.
MARKS = {"Cm", "Ar", "Pa", "Ev", "Ql", "Dq", "Ns", "Brq", "Pq", "Op", "Xr", "Sx"}


@dataclasses.dataclass(frozen=True)
class Item:
    """An entry of a list: what it explains, and the explanation."""

    section: str
    head: str
    text: str


def plain(line):
    """The words of a line of mdoc without its marks."""
    if line.startswith(".Fl "):
        line = ".Cm -" + line[4:]
    if not line.startswith("."):
        return line
    words = line[1:].split()
    return " ".join(word for word in words if word not in MARKS).replace(r"\&", "")


def items(page):
    """All entries of a page's lists, in order."""
    found, section, head, text = [], "", None, []

    def finish():
        if head is not None:
            found.append(Item(section, head, " ".join(text)))

    for line in (MANUALS / page).read_text().splitlines():
        word, _, rest = line.partition(" ")
        if word in (".It", ".Sh", ".Ss", ".El"):
            finish()
            head, text = (rest, []) if word == ".It" else (None, [])
            if word in (".Sh", ".Ss"):
                section = rest
        elif word not in (".br", ".Pp", ".Bl"):
            text.append(plain(line))
    return found


def entries(page, section):
    """The entries of one section: what they explain to their text."""
    return {item.head: item.text for item in items(page) if item.section == section}


def options(page):
    """The options that a page explains."""
    heads = (item.head for item in items(page) if item.head.startswith("Fl "))
    return {"-" + word for head in heads for word in re.findall(r"Fl ([\w-]+)", head)}


def guide_table(first_column):
    """The table of the guide whose head begins with a column: first cell to the other cells, plain."""
    lines = iter(GUIDE.read_text().splitlines())
    for line in lines:
        if line.startswith(f"| {first_column} |"):
            break
    next(lines)  # the rule below the head
    rows = {}
    for line in lines:
        if not line.startswith("|"):
            break
        cells = [cell.strip().replace("`", "") for cell in line.strip("|").split("|")]
        rows[cells[0]] = cells[1:]
    return rows
