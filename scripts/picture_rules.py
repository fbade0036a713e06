"""What the pictures of the documents must be like: small, shown by a page, and as scripts/pictures makes them."""
import os

import pages
from drawings import DRAWINGS

FOLDER = "docs/pictures"
MOST_BYTES = 60000


def problems_of(name, shown):
    """The problems of one picture; shown are the files that pages link to."""
    path = pages.ROOT / name
    problems = [] if name in shown else [f"{name}: no page shows it"]
    if path.stat().st_size > MOST_BYTES:
        problems.append(f"{name}: {path.stat().st_size} bytes, at most {MOST_BYTES}")
    drawing = DRAWINGS.get(path.stem) if path.suffix == ".svg" else None
    if path.suffix == ".svg" and (drawing is None or drawing().svg() != path.read_text(encoding="utf-8")):
        problems.append(f"{name}: scripts/pictures makes another one")
    return problems


def check_pictures():
    """Every picture of the documents is small and shown by a page; the diagrams are as scripts/pictures makes them."""
    shown = {os.path.normpath(os.path.join(os.path.dirname(name), target))
             for name in pages.names_of_pages() for _, target in pages.links_of(pages.text_of_page(name))}
    names = [f"{FOLDER}/{path.name}" for path in sorted((pages.ROOT / FOLDER).glob("*"))]
    problems = [problem for name in names for problem in problems_of(name, shown)]
    return problems + [f"{FOLDER}/{name}.svg is missing" for name in DRAWINGS if f"{FOLDER}/{name}.svg" not in names]
