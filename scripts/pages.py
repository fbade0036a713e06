"""The project's pages as a reader meets them: their sentences, links and anchors, and how hard they are to read."""
import html
import pathlib
import re
import subprocess
from dataclasses import dataclass

ROOT = pathlib.Path(__file__).resolve().parent.parent
MOST_WORDS = 25
# Behind these a sentence goes on.
ABBREVIATIONS = ("e.g.", "i.e.", "etc.", "vs.", "cf.", "approx.", "No.")
# Names in lower case that a sentence may begin with.
NAMES = r"plc[-_]\w|libplc|scripts/|systemd|tshark|mosquitto|cmake|pkg-config"
# A code span counts as one word of one syllable.
CODE = "Code"


@dataclass
class Unit:
    """A paragraph, an item of a list, a cell of a table or a heading: text without marks, and its first line."""
    kind: str
    line: int
    text: str


@dataclass
class Sentence:
    kind: str
    line: int
    text: str

    @property
    def words(self):
        return [word for word in self.text.split() if any(char.isalnum() for char in word)]


def names_of_pages(commit=None):
    """Every page of the project, or of one of its commits. Sources that came without git have those that lie there."""
    if commit is None and not (ROOT / ".git").exists():
        found = (str(page.relative_to(ROOT)) for page in ROOT.rglob("*.md"))
        return sorted(name for name in found if not name.startswith("build/"))
    command = ["git", "ls-tree", "-r", "--name-only", commit] if commit else \
        ["git", "ls-files", "-co", "--exclude-standard"]
    listed = subprocess.run(command, cwd=ROOT, check=True, text=True, stdout=subprocess.PIPE).stdout.split("\n")
    return sorted({name for name in listed if name.endswith(".md") and (commit or (ROOT / name).is_file())})


def text_of_page(name, commit=None):
    if commit:
        return subprocess.run(["git", "show", f"{commit}:{name}"], cwd=ROOT, check=True, text=True, encoding="utf-8",
                              stdout=subprocess.PIPE).stdout
    return (ROOT / name).read_text(encoding="utf-8")


def blanked(match):
    """As many lines, without what stood there."""
    return "\n" * match[0].count("\n")


def without_blocks(text):
    """The page without fenced blocks and comments; every line keeps its number."""
    text = re.sub(r"(?ms)^ *(```+|~~~+).*?^ *\1 *$", blanked, text)
    return re.sub(r"(?s)<!--.*?-->", blanked, text)


def without_code(text, instead=CODE):
    """The text with a word in place of each code span."""
    return re.sub(r"(?s)(?<!`)(`+)(?!`)((?:(?!\n\n).)+?)(?<!`)\1(?!`)", lambda span: instead + blanked(span), text)


def without_marks(text):
    text = re.sub(r"!\[[^\]]*\](\([^)]*\)|\[[^\]]*\])?", "", text)
    text = re.sub(r"\[([^\]]*)\](\([^)\s]*\)|\[[^\]]*\])", r"\1", text)
    text = re.sub(r"<[a-zA-Z/][^>]*>", "", text)
    text = re.sub(r"\*\*|__|(?<!\w)[*_](?=\S)|(?<=\S)[*_](?!\w)", "", text)
    return html.unescape(text).replace("\\", "")


def units_of(text):
    """The page's units in their order."""
    units = []
    going_on = False
    for number, line in enumerate(without_code(without_blocks(text)).split("\n"), 1):
        line = re.sub(r"^\s*(> ?)+", "", line)
        heading = re.match(r"#{1,6} +(.*?)#*$", line)
        item = re.match(r"\s*(?:[-*+]|\d+[.)]) +(.*)", line)
        if line.lstrip().startswith("|"):
            cells = re.split(r"(?<!\\)\|", line.strip().strip("|"))
            units += [Unit("cell", number, cell.strip()) for cell in cells if not re.fullmatch(r"\s*:?-+:?\s*", cell)]
            going_on = False
        elif not line.strip() or re.match(r"\[[^\]]+\]: ", line):
            going_on = False
        elif heading:
            units.append(Unit("heading", number, heading[1]))
            going_on = False
        elif item:
            units.append(Unit("item", number, item[1]))
            going_on = True
        elif going_on:
            units[-1].text += "\n" + line.strip()
        else:
            units.append(Unit("paragraph", number, line.strip()))
            going_on = True
    for unit in units:
        unit.text = without_marks(unit.text)
    return [unit for unit in units if unit.text.strip()]


SENTENCE_END = re.compile(rf"[.!?][\"')\]]*(\s+)(?=[\"'(\[]*(?:[A-Z0-9]|{NAMES}))")


def sentences_of(unit):
    """A sentence ends at a full stop, a question mark or an exclamation mark, never at a colon or a semicolon."""
    start = 0
    for match in SENTENCE_END.finditer(unit.text):
        said = unit.text[start:match.end()]
        if not said.rstrip().endswith(ABBREVIATIONS):
            yield Sentence(unit.kind, unit.line + unit.text[:start].count("\n"), " ".join(said.split()))
            start = match.end()
    rest = unit.text[start:]
    if rest.strip():
        yield Sentence(unit.kind, unit.line + unit.text[:start].count("\n"), " ".join(rest.split()))


def sentences_of_page(text):
    """All but headings, those with a word in them."""
    found = (sentence for unit in units_of(text) if unit.kind != "heading" for sentence in sentences_of(unit))
    return [sentence for sentence in found if sentence.words]


def syllables(word):
    """Groups of vowels, without a silent e at the end; 1 for a number."""
    total = 0
    for part in re.findall(r"[a-z]+", word.lower()):
        groups = len(re.findall(r"[aeiouy]+", part))
        silent = re.search(r"[^aeiouyl]e$|[aeiouy]le$|[^aeiouydt]ed$|[^aeiouysxzcgh]es$", part)
        total += max(1, groups - (1 if silent else 0))
    return max(1, total)


@dataclass
class Measures:
    """What makes a page hard: counts that add up over pages."""
    words: int = 0
    longest: int = 0
    text_words: int = 0
    text_sentences: int = 0
    text_syllables: int = 0

    @property
    def mean(self):
        return self.text_words / self.text_sentences if self.text_sentences else 0.0

    @property
    def flesch(self):
        """Flesch reading ease (1948): 206.835 - 1.015 words a sentence - 84.6 syllables a word."""
        if not self.text_words:
            return 0.0
        return 206.835 - 1.015 * self.mean - 84.6 * self.text_syllables / self.text_words

    def add(self, other):
        self.words += other.words
        self.longest = max(self.longest, other.longest)
        self.text_words += other.text_words
        self.text_sentences += other.text_sentences
        self.text_syllables += other.text_syllables


def measures_of(text):
    """The longest sentence of all; mean and ease of paragraphs and lists, since cells are seldom whole sentences."""
    measures = Measures()
    for sentence in sentences_of_page(text):
        count = len(sentence.words)
        measures.words += count
        measures.longest = max(measures.longest, count)
        if sentence.kind != "cell":
            measures.text_words += count
            measures.text_sentences += 1
            measures.text_syllables += sum(syllables(word) for word in sentence.words)
    return measures


def anchors_of(text):
    """What a link may name behind '#': the headings as GitHub turns them into anchors, and anchors of HTML."""
    anchors = set()
    for heading in re.findall(r"(?m)^#{1,6} +(.*?) *#*$", without_blocks(text)):
        plain = without_marks(re.sub(r"`([^`]*)`", r"\1", heading))
        slug = re.sub(r"[^\w\- ]", "", plain.lower()).replace(" ", "-")
        number = 0
        while (slug if number == 0 else f"{slug}-{number}") in anchors:
            number += 1
        anchors.add(slug if number == 0 else f"{slug}-{number}")
    return anchors | set(re.findall(r"<a (?:id|name)=\"([^\"]+)\"", text))


def links_of(text):
    """The page's links and pictures: line and target."""
    plain = without_code(without_blocks(text))
    pattern = r"\]\(\s*<?([^)\s>]+)>?(?:\s+\"[^\"]*\")?\s*\)|(?m:^\[[^\]]+\]: +(\S+))|(?:href|src)=\"([^\"]+)\""
    for match in re.finditer(pattern, plain):
        yield plain[:match.start()].count("\n") + 1, match[1] or match[2] or match[3]
