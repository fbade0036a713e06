"""What the public headers say of their records, functions and constants, read through Doxygen."""
import pathlib
import re
import subprocess
import tempfile
import xml.etree.ElementTree as ElementTree
from dataclasses import dataclass, field

from pages import ROOT

FILTER = ROOT / "scripts" / "reference_comments.py"
SETTINGS = """
GENERATE_HTML = NO
GENERATE_LATEX = NO
GENERATE_XML = YES
XML_PROGRAMLISTING = NO
QUIET = YES
WARN_IF_UNDOCUMENTED = NO
WARN_AS_ERROR = FAIL_ON_WARNINGS
EXTRACT_ALL = YES
MARKDOWN_SUPPORT = NO
AUTOLINK_SUPPORT = NO
SORT_MEMBER_DOCS = NO
FILE_PATTERNS = *.h
MACRO_EXPANSION = YES
EXPAND_ONLY_PREDEF = YES
PREDEFINED = PLC_DRIVER_API= PLC_CLIENT_API= PLC_CLIENT_PRIVATE= __attribute__(x)= __cplusplus=201703L
"""
# What a compiler makes, and the base's constructors.
COPIES = re.compile(r"^\((const )?(\w+) ?&{1,2}( \w+)?\)")


@dataclass
class Entry:
    """A record, a function, an enumeration, a type or a constant."""
    kind: str
    name: str
    line: int
    signature: str
    text: str
    members: list = field(default_factory=list)


def text_of(element):
    """The words of a description, paragraphs with an empty line between them, code as it is laid out."""
    if element is None:
        return ""
    paragraphs = [" ".join("".join(paragraph.itertext()).split()) for paragraph in element.iter("para")]
    return "\n\n".join(paragraph for paragraph in paragraphs if paragraph)


def described(element):
    parts = (text_of(element.find(f"{which}description")) for which in ("brief", "detailed", "inbody"))
    return "\n\n".join(part for part in parts if part)


def type_of(member):
    return "".join(member.find("type").itertext()) if member.find("type") is not None else ""


def about_of(header):
    """The text of the header's first comment, as it is laid out."""
    text = (ROOT / header).read_text(encoding="utf-8")
    if text.startswith("/*"):
        lines = text[2:text.index("*/")].split("\n")
        return "\n".join(re.sub(r"^ ?\*? ", "", line) if line.strip(" *") else "" for line in lines).strip()
    return "\n".join(line[3:] for line in re.match(r"(//.*\n)*", text)[0].split("\n")).strip()


def line_of(element):
    place = element.find("location")
    return int(place.get("line", 0)) if place is not None else 0


def template_of(member):
    parameters = member.findall("templateparamlist/param")
    words = [" ".join("".join(part.itertext()) for part in parameter if part.tag in ("type", "declname"))
             for parameter in parameters]
    return f"template <{', '.join(words)}>\n" if words else ""


def as_written(declaration):
    """Doxygen's blanks as the headers have them: a mark of a type stands with its type."""
    declaration = re.sub(r"\(\* (\w+)\) \(", r" (*\1)(", declaration).replace(",...", ", ...")
    declaration = re.sub(r"< | >", lambda blank: blank[0].strip(), declaration.replace("plc_client::", ""))
    return re.sub(r"(?<!\() ?([*&]+) ?(?=\w)", r"\1 ", re.sub(r" ([*&]+)(?=[ ,)]|$)", r"\1", declaration))


def signature_of(member):
    kind, name = member.get("kind"), member.findtext("name")
    if kind == "define":
        return f"#define {name} {member.findtext('initializer')}"
    if kind == "function":
        tail = re.sub(r"\s*=\s*default$", "", member.findtext("argsstring") or "")
        virtual = "explicit " if member.get("explicit") == "yes" else ""
        return as_written(f"{template_of(member)}{virtual}{(type_of(member) + ' ' + name).strip()}{tail}")
    if kind == "typedef":
        return as_written(re.sub(r"= ?typedef ", "= ", " ".join((member.findtext("definition") or "").split())))
    initial = member.findtext("initializer") or ""
    initial = f" {initial}" if initial.startswith("=") else initial
    return as_written(f"{type_of(member)} {name}{member.findtext('argsstring') or ''}{initial}")


def members_of(element, wanted=None):
    """The public members, in the order of their lines."""
    entries = []
    for member in element.iter("memberdef"):
        if member.get("prot") != "public" or member.get("kind") == "friend":
            continue
        name = member.findtext("name")
        if name.startswith("@"):
            name = ""
        if name.endswith("_H") or (wanted and not wanted(member)):
            continue
        entry = Entry(member.get("kind"), name, line_of(member), signature_of(member), described(member))
        entry.members = [Entry("value", value.findtext("name"), 0, value.findtext("initializer") or "",
                               described(value)) for value in member.findall("enumvalue")]
        entries.append(entry)
    return sorted(entries, key=lambda entry: entry.line)


def made_by_compiler(entry, record):
    """Destructors, copies and moves need no text."""
    plain_name = record.rpartition("::")[2]
    tail = entry.signature.partition(entry.name)[2]
    return entry.kind == "function" and (entry.name.startswith("~") or "=delete" in tail.replace(" ", "") or
                                         (entry.name in (plain_name, "operator=") and COPIES.match(tail) is not None))


def record_of(compound):
    name = compound.findtext("compoundname")
    entry = Entry(compound.get("kind"), name, line_of(compound), "", described(compound))
    entry.members = [member for member in members_of(compound) if not made_by_compiler(member, name)]
    return entry


def read_headers(headers):
    """The text of each header, and its entries in the order of their lines."""
    with tempfile.TemporaryDirectory() as folder:
        files = " ".join(str(ROOT / header) for header in headers)
        settings = f"{SETTINGS}INPUT = {files}\nOUTPUT_DIRECTORY = {folder}\n" \
                   f"INPUT_FILTER = \"/usr/bin/python3 -B {FILTER}\"\n"
        done = subprocess.run(["doxygen", "-"], input=settings, text=True, cwd=ROOT, check=False,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if done.returncode != 0 or "warning:" in done.stdout:
            raise SystemExit(f"doxygen: {done.stdout.strip()}")
        compounds = [ElementTree.parse(file).getroot().find("compounddef")
                     for file in sorted(pathlib.Path(folder, "xml").glob("*.xml")) if file.name != "index.xml"]
    found = {}
    for header in headers:
        here = [compound for compound in compounds if compound is not None and
                (compound.find("location") is not None) and
                pathlib.Path(compound.find("location").get("file")).name == pathlib.Path(header).name]
        records = [record_of(compound) for compound in here
                   if compound.get("kind") in ("struct", "class") and compound.get("prot", "public") == "public"]
        names = {record.name for record in records}
        outer = [compound for compound in compounds
                 if compound is not None and compound.get("kind") in ("file", "namespace")]
        loose = [entry for compound in outer
                 for entry in members_of(compound, lambda member: is_of(member, header)) if entry.name not in names]
        once = {(entry.name, entry.line): entry for entry in loose}
        found[header] = about_of(header), sorted([*records, *once.values()], key=lambda entry: entry.line)
    return found


def is_of(member, header):
    return pathlib.Path(member.find("location").get("file")).name == pathlib.Path(header).name


def has_words(text):
    """Whether there is more than an offset."""
    return re.search(r"[A-Za-z]{2}", text) is not None


def undocumented(found):
    """Every entry and every member without a text."""
    problems = []
    for header, (about, entries) in found.items():
        problems += [] if has_words(about) else [f"{header}: no text about the file"]
        for entry in entries:
            if not has_words(entry.text):
                problems.append(f"{header}:{entry.line}: {entry.name or entry.kind} has no text")
            problems += [f"{header}:{member.line}: {entry.name}::{member.name} has no text" for member in entry.members
                         if member.kind != "value" and not has_words(member.text)]
    return problems
