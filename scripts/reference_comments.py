#!/usr/bin/env python3
"""Prints a public header with its comments as Doxygen looks for them: before what they are about, or behind it.

reference_comments.py HEADER
"""
import pathlib
import re
import sys

# What Doxygen would obey in plain words.
OBEYED = re.compile(r"[\\@<>#%&]")


def plain(words):
    return OBEYED.sub(lambda mark: "\\" + mark[0], words)


def comments_of_c(text):
    """/* ... */ before or behind; the first one is about the file and stays as it is."""
    def marked(match):
        if match.start() == 0:
            return match[0]
        behind = text[:match.start()].rpartition("\n")[2].strip()
        return ("/**<" if behind else "/**") + plain(match[1]) + "*/"

    return re.sub(r"(?s)/\*(.*?)\*/", marked, text)


def comments_of_cpp(text):
    """// lines; those that follow one behind a declaration go on with it. Rules and marks for checkers are left out."""
    head = re.match(r"(//.*\n)*", text)[0]
    lines = []
    behind = None  # the column of the comment behind a declaration
    for line in text[len(head):].split("\n"):
        match = re.match(r"(.*?)//(.*)$", line)
        if match is None or re.match(r" ?(-{4,}|NOLINT)", match[2]):
            behind = None
            lines.append(match[1] if match else line)
            continue
        if match[1].strip():
            behind = len(match[1])
        mark = "//!<" if behind == len(match[1]) else "//!"
        lines.append(match[1] + mark + plain(match[2]))
    return head + "\n".join(lines)


def main():
    file = pathlib.Path(sys.argv[1])
    text = file.read_text(encoding="utf-8")
    print(comments_of_c(text) if text.startswith("/*") else comments_of_cpp(text), end="")


if __name__ == "__main__":
    main()
