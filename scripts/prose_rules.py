"""What a page must be like: short sentences, plain words, each fact in one place, links that lead somewhere."""
import os
import re
import tomllib

import pages

SCRIPTS = pages.ROOT / "scripts"
MOST_SEMICOLONS = 1
# Pages whose reader is clear from where they are: the first page, what changed, a folder's own text.
WITHOUT_FRAME = ("README.md", "CHANGELOG.md", "examples/", "tests/")
FIRST = "For "
LAST = "Next: "


def read_table(name):
    return tomllib.loads((SCRIPTS / name).read_text(encoding="utf-8"))


def quaint():
    return read_table("prose.toml")["word"]


def facts():
    return read_table("facts.toml")["fact"]


def long_sentences(name, text):
    """The sentences above the limit, cells of tables among them."""
    return [f"{name}:{sentence.line}: {len(sentence.words)} words: {sentence.text[:90]}"
            for sentence in pages.sentences_of_page(text) if len(sentence.words) > pages.MOST_WORDS]


def chained_sentences(name, text):
    return [f"{name}:{sentence.line}: {sentence.text.count(';')} semicolons: {sentence.text[:90]}"
            for sentence in pages.sentences_of_page(text) if sentence.text.count(";") > MOST_SEMICOLONS]


def quaint_words(name, text, words):
    """The words that a reader stumbles over, and what to write instead."""
    problems = []
    for unit in pages.units_of(text):
        for word in words:
            for match in re.finditer(word["pattern"], unit.text, re.I):
                line = unit.line + unit.text[:match.start()].count("\n")
                problems.append(f"{name}:{line}: '{match[0]}': {word['instead']}")
    return problems


def frame(name, text):
    """A page begins with its reader and ends with what to read next."""
    if name.startswith(WITHOUT_FRAME):
        return []
    paragraphs = [unit.text for unit in pages.units_of(text) if unit.kind == "paragraph"]
    problems = []
    if not paragraphs or not paragraphs[0].startswith(FIRST):
        problems.append(f"{name}: it does not begin with '{FIRST}...'")
    if not paragraphs or not paragraphs[-1].startswith(LAST):
        problems.append(f"{name}: it does not end with '{LAST}...'")
    return problems


def places_of_fact(fact, texts):
    """The pages and lines where a fact stands; in code spans only when the fact is looked for there too."""
    pattern = re.compile(fact["pattern"].replace(" ", r"\s+"), re.I)
    for name, text in texts.items():
        if name == "CHANGELOG.md" or name in fact.get("another_fact_on", ()):
            continue
        plain = pages.without_blocks(text)
        plain = plain if fact.get("code") else pages.without_code(plain)
        for match in pattern.finditer(plain):
            yield name, plain[:match.start()].count("\n") + 1


def misplaced_facts(texts):
    problems = []
    for fact in facts():
        problems += [f"{name}:{line}: {fact['fact']}: this stands in {fact['page']}, link there"
                     for name, line in places_of_fact(fact, texts) if name != fact["page"]]
        own = {fact["page"]: pages.text_of_page(fact["page"])} if (pages.ROOT / fact["page"]).is_file() else {}
        if not list(places_of_fact(fact, own)):
            problems.append(f"scripts/facts.toml: {fact['fact']}: {fact['page']} does not have it")
    return problems


def dead_links(name, texts, anchors):
    """Links to files that are not there, to places that a page does not have, and out of the project."""
    problems = []
    for line, target in pages.links_of(texts[name]):
        if re.match(r"[a-z]+:", target):
            continue
        path, _, anchor = target.partition("#")
        path = os.path.normpath(os.path.join(os.path.dirname(name), path)) if path else name
        if path.startswith("..") or path not in texts and not (pages.ROOT / path).exists():
            problems.append(f"{name}:{line}: there is no {path}")
        elif anchor and path in texts:
            known = anchors.setdefault(path, pages.anchors_of(texts[path]))
            problems += [] if anchor in known else [f"{name}:{line}: {path} has no place '{anchor}'"]
    return problems


def hard_to_read(name, text):
    """What is wrong with the sentences and words of a page."""
    return long_sentences(name, text) + chained_sentences(name, text) + quaint_words(name, text, quaint())


def check_prose():
    """Pages have short sentences and plain words, each fact in one place, a reader, and what to read next."""
    texts = {name: pages.text_of_page(name) for name in pages.names_of_pages()}
    problems = []
    for name, text in texts.items():
        problems += hard_to_read(name, text) + frame(name, text)
    return problems + misplaced_facts(texts)


def check_links():
    """Every link of a page leads to a file of the project, and to a place that is there."""
    texts = {name: pages.text_of_page(name) for name in pages.names_of_pages()}
    anchors = {}
    return [problem for name in texts for problem in dead_links(name, texts, anchors)]
