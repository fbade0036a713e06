"""The manual page of a program, from its help."""
import collections
import re
import textwrap

WRAP_COLUMNS = 72


def plain(text):
    """Text as roff shows it unchanged, to be copied to a command line."""
    text = text.replace("\\", "\\e")
    for character, name in (("-", "\\-"), ("'", "\\(aq"), ("`", "\\(ga"), ("^", "\\(ha"), ("~", "\\(ti")):
        text = text.replace(character, name)
    return re.sub(r"^([.])", r"\\&\1", text)


def quoted(text):
    """An argument of a macro."""
    return '"' + plain(text).replace('"', "\\(dq") + '"'


def prose(text):
    """A paragraph in short lines, as roff's checkers like them."""
    lines = textwrap.wrap(plain(text), WRAP_COLUMNS, break_long_words=False, break_on_hyphens=False)
    return [re.sub(r"^([.])", r"\\&\1", line) for line in lines]


def verbatim(lines):
    return [".PP", ".nf", ".RS 4", *map(plain, lines), ".RE", ".fi"]


def sentence(text):
    return text if text.endswith((".", "!", "?")) else text + "."


def option_lines(option):
    """An option with everything that its line in the help says."""
    if option.names[0].startswith("-"):
        head = ", ".join("\\fB%s\\fR" % plain(name) for name in option.names)
        head += " \\fI%s\\fR" % plain(option.value) if option.value else ""
    else:
        head = "\\fI%s\\fR" % plain(option.names[0] + (" ..." if option.repeated else ""))
    said = [sentence(option.text)]
    if option.choices:
        said.append("One of: %s." % ", ".join(option.choices))
    if option.bounds:
        said.append("From %s to %s." % option.bounds)
    if option.default:
        said.append("When not given: %s." % option.default)
    if option.needs:
        said.append("Goes with %s." % ", ".join(option.needs))
    if option.excludes:
        said.append("Not together with %s." % ", ".join(option.excludes))
    return [".TP", head, *prose(" ".join(said))]


def block_lines(block):
    if block.prose:
        return [".PP", *prose(" ".join(block.lines))]
    return verbatim(block.lines)


def usage_line(usage):
    program, _, rest = usage.partition(" ")
    return "\\fB%s\\fR %s" % (plain(program), plain(rest))


def same(block):
    return (block.title, block.prose, tuple(block.lines))


def shared_parts(page):
    """Option groups and blocks that several commands say in the same words: told once, behind the commands."""
    groups = collections.Counter()
    blocks = collections.Counter()
    for command, _ in page.commands:
        groups.update((title, repr(options)) for title, options in command.groups if title != "Options")
        blocks.update(same(block) for block in command.blocks)
    return {key for key, count in groups.items() if count > 1}, {key for key, count in blocks.items() if count > 1}


def command_lines(command, short, shared_groups, shared_blocks):
    """The section of one command."""
    lines = [".SS " + quoted(command.name), usage_line(command.usage), ".PP",
             *prose(sentence(command.description or short))]
    for option in command.positionals:
        lines += option_lines(option)
    for title, options in command.groups:
        if (title, repr(options)) in shared_groups:
            lines += [".PP", "Takes the options under " + plain(title.upper()) + " too."]
            continue
        for option in options:
            lines += option_lines(option)
    for block in command.blocks:
        if same(block) in shared_blocks:
            continue
        if block.title in ("Example", "Examples"):
            lines += [".PP", block.title + ":"]
        lines += block_lines(block)
    return lines


def shared_lines(page, shared_groups, shared_blocks):
    """What several commands share."""
    lines = []
    said = set()
    for command, _ in page.commands:
        for title, options in command.groups:
            key = (title, repr(options))
            if key in shared_groups and key not in said:
                said.add(key)
                lines.append(".SH " + quoted(title.upper()))
                for option in options:
                    lines += option_lines(option)
    notes = [block for command, _ in page.commands for block in command.blocks if same(block) in shared_blocks]
    if notes:
        lines.append(".SH NOTES")
    for block in notes:
        if same(block) not in said:
            said.add(same(block))
            lines += block_lines(block)
    return lines


def summary_of(page):
    """What the program is, in the few words that indexes of manual pages show."""
    first = re.split(r"[:.](?: |$)", page.description.removeprefix(page.name + " - "))[0]
    return first[:1].lower() + first[1:]


def manual_page(page, version, date, others):
    """The page in roff; `others` are the programs that it refers to."""
    lines = [".\\\" Made from the program's own help.",
             ".TH %s 1 %s %s %s" % (quoted(page.name.upper()), '"%s"' % date, quoted("plc_driver " + version),
                                    quoted("User Commands")),
             ".SH NAME", "%s \\- %s" % (plain(page.name), plain(summary_of(page))),
             ".SH SYNOPSIS", usage_line(page.usage)]
    for command, _ in page.commands:
        lines += [".br", usage_line(command.usage)]
    lines += [".SH DESCRIPTION", *prose(page.description)]
    sections = collections.defaultdict(list)
    for block in page.blocks:
        sections[block.title] += block_lines(block)
    lines += sections.pop("", [])
    lines.append(".SH OPTIONS")
    for option in page.positionals + page.options():
        lines += option_lines(option)
    if page.commands:
        shared_groups, shared_blocks = shared_parts(page)
        lines.append(".SH COMMANDS")
        for command, short in page.commands:
            lines += command_lines(command, short, shared_groups, shared_blocks)
        lines += shared_lines(page, shared_groups, shared_blocks)
    titles = {"Example": "EXAMPLES", "Examples": "EXAMPLES", "Exit codes": "EXIT STATUS"}
    for title, content in sections.items():
        lines += [".SH " + quoted(titles.get(title, title.upper())), *content]
    lines += [".SH SEE ALSO", ",\n".join(".BR %s (1)" % plain(other) for other in others)]
    return "\n".join(without_idle_macros(lines)) + "\n"


def without_idle_macros(lines):
    """The same lines without paragraphs that begin directly behind a heading."""
    kept = []
    for line in lines:
        if line == ".PP" and kept and kept[-1].startswith((".SH", ".SS")):
            continue
        kept.append(line)
    return kept
