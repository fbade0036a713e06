"""Colours of code on the site, in the light and in the dark, that everybody can read on their background."""
from pygments.lexer import RegexLexer, bygroups
from pygments.style import Style
from pygments.token import Comment, Error, Generic, Keyword, Name, Number, Operator, String, Text, Token


def colours(plain, quiet, word, text, number, name):
    return {Token: plain, Comment: f"italic {quiet}", Comment.Preproc: f"noitalic {word}", Keyword: word,
            Operator: plain, Operator.Word: word,
            String: text, Number: number, Name.Builtin: name, Name.Function: name, Name.Class: name,
            Name.Tag: word, Name.Attribute: name, Generic.Prompt: quiet, Generic.Output: plain,
            Generic.Strong: f"bold {plain}", Error: plain}


class Console(RegexLexer):
    """Commands behind "$ ", with the lines that a backslash continues, and what is printed."""
    name = "console"
    aliases = ["console"]
    tokens = {"root": [(r"(\$ )((?:.*\\\n)*.*\n)", bygroups(Generic.Prompt, Generic.Strong)), (r".*\n", Text)]}


class Light(Style):
    background_color = "#f8f8f8"
    styles = colours("#24292f", "#57606a", "#8b1a2b", "#0a3069", "#7a3e00", "#553098")


class Dark(Style):
    background_color = "#202020"
    styles = colours("#d6dbe1", "#a0a8b2", "#ff9d96", "#a5d6ff", "#ffc48a", "#d8b9ff")
