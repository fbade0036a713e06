#!/usr/bin/env python3
"""What scripts/check demands of pages is found where it is missing, and nothing else is."""
import pathlib
import sys

sys.dont_write_bytecode = True
ROOT = pathlib.Path(__file__).resolve().parents[3]
sys.path.insert(0, str(ROOT / "scripts"))
import pages  # noqa: E402
import prose_rules  # noqa: E402

LONG = "One two three four five six seven eight nine ten one two three four five six seven eight nine ten one two " \
       "three four five"
PAGE = f"""# A page

For testers: a page.
It has `code with. Full stops` in it.

{LONG}. Short, e.g. Here; and there.

- {LONG} six.
- one; two; three

| a | b |
|---|---|
| x | {LONG} `a b` |

```text
{LONG} six seven. The road is told.
```

The road says nothing. [Back](#a-page), [away](other.md#the-place-of-plc-host), [lost](other.md#nowhere), [gone](no.md).

Next: [other](other.md).
"""
OTHER = "# Other\n\nThe connect takes\n30 ms.\n\n## The place of `plc-host`\n"


def expect(found, expected, what):
    if found != expected:
        raise SystemExit(f"{what}: {found!r}, expected {expected!r}")


def check_sentences():
    expect([problem.rpartition(": ")[0] for problem in prose_rules.long_sentences("page.md", PAGE)],
           ["page.md:8: 26 words", "page.md:13: 26 words"], "long sentences")
    expect(prose_rules.chained_sentences("page.md", PAGE), ["page.md:9: 2 semicolons: one; two; three"], "semicolons")
    texts = [sentence.text for sentence in pages.sentences_of_page("It ends. plc-host goes on? `x` ends. 3 do.\n")]
    expect(texts, ["It ends.", "plc-host goes on?", "Code ends.", "3 do."], "sentences")


def check_measures():
    measures = pages.measures_of("The little machine measures values. It stopped.\n")
    expect((measures.words, measures.longest, measures.mean), (7, 5, 3.5), "words")
    expect([pages.syllables(word) for word in ("table", "machine", "stopped", "loaded", "values", "boxes", "250")],
           [2, 2, 1, 2, 2, 2, 1], "syllables")
    # 206.835 - 1.015 * 3.5 - 84.6 * 11 / 7
    expect(round(measures.flesch, 2), 70.34, "Flesch reading ease")


def check_words():
    found = prose_rules.quaint_words("page.md", PAGE, prose_rules.quaint())
    expect([problem.partition("': ")[0] for problem in found], ["page.md:19: 'road", "page.md:19: 'says"],
           "quaint words")


def check_frame():
    expect(prose_rules.frame("docs/page.md", PAGE), [], "a page with its frame")
    expect(len(prose_rules.frame("docs/other.md", OTHER)), 2, "a page without")
    expect(prose_rules.frame("README.md", OTHER), [], "a page that needs none")


def check_facts():
    fact = {"fact": "the wait", "pattern": r"takes 30 ms\b", "page": "x.md"}
    expect(list(prose_rules.places_of_fact(fact, {"other.md": OTHER, "page.md": PAGE})), [("other.md", 3)], "a fact")


def check_links():
    texts = {"page.md": PAGE, "other.md": OTHER}
    # Neither page is a file of the project; the places in them are known all the same.
    found = prose_rules.dead_links("page.md", texts, {})
    expect(found, ["page.md:19: other.md has no place 'nowhere'", "page.md:19: there is no no.md"], "links")


def main():
    for check in (check_sentences, check_measures, check_words, check_frame, check_facts, check_links):
        check()


if __name__ == "__main__":
    main()
