"""How Sphinx makes the site of scripts/site."""
import pathlib
import sys

from pygments.lexers.special import TextLexer

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent))

from colours import Console  # noqa: E402

project = "plc_driver"
author = "the plc_driver authors"
project_copyright = author
extensions = ["myst_parser"]
root_doc = "index"
language = "en"
html_theme = "furo"
html_title = "plc_driver"
html_static_path = ["static"]
html_css_files = ["site.css"]
html_js_files = [("site.js", {"defer": "defer"})]
html_show_sphinx = False
html_copy_source = False
html_show_sourcelink = False
html_last_updated_fmt = None
# Opened from a disk, a page cannot fetch others to show what is around a word.
html_show_search_summary = False
pygments_style = "colours.Light"
pygments_dark_style = "colours.Dark"
# Debian's build of the theme has no colours for the dark.
DARK = {"color-problematic": "#ff8080", "color-foreground-primary": "#dfe3e8", "color-foreground-secondary": "#a8b0ba",
        "color-foreground-muted": "#98a1ac", "color-foreground-border": "#6b737d",
        "color-background-primary": "#15171a",
        "color-background-secondary": "#1c1f23", "color-background-hover": "#262a30",
        "color-background-hover--transparent": "#262a3000", "color-background-border": "#343a41",
        "color-background-item": "#444a52", "color-brand-primary": "#6cb0ff", "color-brand-content": "#7ab8ff",
        "color-highlighted-background": "#0b3d73", "color-highlight-on-target": "#3a3600",
        "color-admonition-background": "#1a1d20"}
html_theme_options = {"navigation_with_keys": True, "top_of_page_button": None, "dark_css_variables": DARK}
# The places that links name, as they are where the pages are read as Markdown.
myst_heading_anchors = 4
# Quotes and hyphens stay as they are typed.
smartquotes = False


def setup(app):
    # Tag files have no colours of their own, and commands stand out in a session.
    app.add_lexer("csv", TextLexer)
    app.add_lexer("console", Console)
