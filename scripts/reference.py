"""The reference of the interfaces: pages made of the public headers and of the Python package, for scripts/site."""
import re
import textwrap

import prose_rules
import reference_c
import reference_python

C_HEADERS = ("include/plc_driver.h", "include/plc_driver_hooks.h", "include/plc_ethernet.h", "include/universal_api.h")
CPP_HEADER = "client/plc_client.h"
WIDEST = 90
# For the compiler, of no use to readers.
NOT_SHOWN = ("PLC_DRIVER_API", "PLC_CLIENT_API", "PLC_CLIENT_PRIVATE", "fits_signed")
OFFSET = re.compile(r"^(\d+)(?:: *|$)")


def escaped(text):
    """Plain words as Markdown: nothing in them is a mark; names of functions and records are code, pages are links."""
    words = re.sub(r"([\\`*_{}\[\]<>|#$~])", r"\\\1", text)
    return re.sub(r"\bdocs/((?:\w|\\_)+)\.md\b",
                  lambda page: f"[{page[1]}.md](../docs/{page[1]}.md)".replace("\\", ""), words)


def cell(text):
    """A cell of a table. Doxygen ends the first words of a comment with a full stop: a single phrase has none."""
    words = " ".join(escaped(text).split())
    return words[:-1] if words.endswith(".") and ". " not in words else words


def code(text):
    return f"`{text}`" if "`" not in text else text


def fenced(language, text):
    return ["", f"```{language}", text, "```", ""]


def laid_out(text, language):
    """A text with its paragraphs, its indented examples and its columns 'name   what it is'."""
    lines = []
    # An example goes on behind an empty line.
    text = re.sub(r"(?m)^( {2,}.*\n)\n+(?= {2,}\S)", r"\1    \n", text)
    for paragraph in re.split(r"\n\n+", text):
        rows = paragraph.split("\n")
        if all(re.match(r" {2,}", row) for row in rows):
            kind = "text" if re.search(r"(?m)\S {2,}\S", paragraph) else language
            lines += fenced(kind, textwrap.dedent(paragraph).strip())
        elif re.match(r"\S[^ ]*(?:,? \S+)* {2,}\S", rows[0]):
            lines += ["", *columns(rows), ""]
        else:
            lines += [escaped(" ".join(paragraph.split())), ""]
    return lines


def columns(rows):
    table = []
    for row in rows:
        match = re.match(r"(\S+(?: \S+)*) {2,}(\S.*)", row)
        if match:
            table.append([match[1], match[2]])
        else:
            table[-1][1] += " " + row.strip()
    return ["| name | meaning |", "|---|---|", *(f"| {code(name)} | {cell(words)} |" for name, words in table)]


def fields_table(entry):
    """A record's fields; those of the driver's records with their offsets."""
    fields = [member for member in entry.members if member.kind == "variable"]
    if not fields:
        return []
    has_offsets = all(OFFSET.match(member.text) for member in fields)
    head = ["| offset | field | meaning |", "|---|---|---|"] if has_offsets else ["| field | meaning |", "|---|---|"]
    rows = []
    for member in fields:
        offset = f"| {OFFSET.match(member.text)[1]} " if has_offsets else ""
        words = OFFSET.sub("", member.text) if has_offsets else member.text
        rows.append(f"{offset}| {code(re.sub(r'  +', ' ', member.signature))} | {cell(words)} |")
    return ["", *head, *rows, ""]


def values_table(entry):
    names = [code((value.name + " " + value.signature).strip()) for value in entry.members]
    if not any(value.text for value in entry.members):
        return ["", ", ".join(names) + ".", ""] if names else []
    rows = [f"| {name} | {cell(value.text)} |" for name, value in zip(names, entry.members)]
    return ["", "| value | meaning |", "|---|---|", *rows, ""]


def functions(members, level, language, owner=""):
    """One heading for each name; functions of one name share it."""
    lines = []
    last = None
    for member in members:
        if member.name != last:
            lines += ["", f"{'#' * level} {code(owner + member.name)}", ""]
        last = member.name
        end = "" if member.signature.endswith(("}", ";")) else ";"
        end = "" if member.kind in ("define", "enum") else end
        lines += fenced(language, folded(member.signature + end)) if member.kind != "enum" else []
        lines += laid_out(member.text, language)
        lines += values_table(member) if member.kind == "enum" else []
    return lines


def folded(signature):
    """A long one with an argument in each line."""
    head, bracket, tail = signature.partition("(")
    if len(signature) <= WIDEST or not bracket:
        return signature
    inner, _, behind = tail.rpartition(")")
    arguments = re.split(r", (?![^<\[]*[>\]])", inner)
    return f"{head}(\n    " + ",\n    ".join(arguments) + f"\n){behind}"


def entry_lines(entry, language):
    if entry.kind in ("struct", "class"):
        name = entry.name.rpartition("plc_client::")[2]
        lines = ["", f"### {code(name)}", "", *laid_out(entry.text, language), *fields_table(entry)]
        others = [member for member in entry.members if member.kind != "variable"]
        return lines + functions(others, 4, language, f"{name}::")
    if entry.kind == "enum":
        ends = dict.fromkeys((entry.members[0].name, entry.members[-1].name))
        title = code(entry.name) if entry.name else " to ".join(map(code, ends))
        return ["", f"### {title}", "", *laid_out(entry.text, language), *values_table(entry)]
    return functions([entry], 3, language)


def header_lines(header, about, entries, language):
    lines = ["", f"## {header.rpartition('/')[2]}", "", *laid_out(about, language)]
    last = None
    for entry in entries:
        if entry.name in NOT_SHOWN:
            continue
        more = entry_lines(entry, language)
        # Functions of one name in a row share its heading.
        lines += more[3:] if entry.kind == "function" and entry.name == last else more
        last = entry.name if entry.kind == "function" else None
    return lines


def c_page(found):
    lines = ["# Reference: C", "", "For authors of hosts in C: the driver's public headers.", ""]
    for header in C_HEADERS:
        lines += header_lines(header, *found[header], "c")
    return "\n".join([*lines, "", "Next: [the contract with hosts](../docs/host_contract.md).", ""])


def cpp_page(found):
    lines = ["# Reference: C++", "", f"For authors of programs in C++: `{CPP_HEADER}`.", ""]
    lines += header_lines(CPP_HEADER, *found[CPP_HEADER], "cpp")
    return "\n".join([*lines, "", "Next: [variables by name in C++](../docs/client.md).", ""])


def python_page():
    about, classes, _ = reference_python.read_package()
    lines = ["# Reference: Python", "",
             "For authors of programs in Python: the texts that `help(plc_client)` shows.", "",
             *laid_out(about, "python")]
    for entry in classes:
        lines += ["", f"## {code(entry.name)}", ""]
        for signature in entry.signatures:
            lines += fenced("python", folded(signature))
        lines += laid_out(entry.text, "python")
        for member in entry.members:
            if member.text:
                lines += ["", f"### {code(entry.name + '.' + member.name)}", ""]
                lines += fenced("python", "\n".join(map(folded, member.signatures))) + laid_out(member.text, "python")
    return "\n".join([*lines, "", "Next: [the Python package](../docs/python.md).", ""])


def pages(found=None):
    """The pages by their names, without the folder; of headers that were read already, or of those of the project."""
    found = found or reference_c.read_headers((*C_HEADERS, CPP_HEADER))
    return {"c.md": c_page(found), "cpp.md": cpp_page(found), "python.md": python_page()}


def check_reference():
    """Every public function, record and field, in C, C++ and Python, has a text that is easy to read."""
    found = reference_c.read_headers((*C_HEADERS, CPP_HEADER))
    problems = reference_c.undocumented(found) + reference_python.undocumented()
    for name, text in pages(found).items():
        problems += prose_rules.hard_to_read(f"the text for {name}", text)
    return problems
