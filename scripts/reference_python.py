"""What the Python package says of its classes and functions, read from its sources without running them."""
import ast
import inspect
import re
from dataclasses import dataclass, field

from pages import ROOT

PACKAGE = ROOT / "python" / "plc_client"


@dataclass
class PythonEntry:
    """A class, a method or an attribute of one, or a function."""
    name: str
    place: str
    signatures: list
    text: str
    members: list = field(default_factory=list)


def text_of(node):
    return inspect.cleandoc(ast.get_docstring(node, clean=False) or "")


def decorators(node):
    return [ast.unparse(decorator) for decorator in node.decorator_list]


def signature_of(node, owner):
    """A method as its callers see it, without self."""
    arguments = ast.unparse(node.args)
    arguments = re.sub(r"^self(, |$)", "", arguments)
    if node.name == "__init__":
        return f"{owner}({arguments})"
    if "property" in decorators(node):
        return f"{node.name}: {ast.unparse(node.returns)}"
    return f"{node.name}({arguments})" + (f" -> {ast.unparse(node.returns)}" if node.returns else "")


def class_entry(node, file):
    entry = PythonEntry(node.name, f"{file}:{node.lineno}", [], text_of(node))
    methods = {}
    for item in node.body:
        if isinstance(item, ast.AnnAssign) and isinstance(item.target, ast.Name):
            entry.members.append(PythonEntry(item.target.id, f"{file}:{item.lineno}",
                                             [f"{item.target.id}: {ast.unparse(item.annotation)}"], ""))
        if not isinstance(item, ast.FunctionDef):
            continue
        if item.name == "__init__":
            entry.signatures = [signature_of(item, node.name)]
        elif not item.name.startswith("_"):
            method = methods.setdefault(item.name, PythonEntry(item.name, f"{file}:{item.lineno}", [], ""))
            # What several forms have in common has the text, and the forms the signatures.
            method.text = text_of(item) or method.text
            if "overload" in decorators(item) or not method.signatures:
                method.signatures.append(signature_of(item, node.name))
    entry.members += methods.values()
    if not columns_of(entry.text):  # not made by users: what is raised, what calls give
        entry.signatures = []
    return entry


def read_package():
    """The package's own text, and the classes and functions that it offers, in the order of its text."""
    tree = ast.parse((PACKAGE / "__init__.py").read_text(encoding="utf-8"))
    offered = next(ast.literal_eval(node.value) for node in tree.body
                   if isinstance(node, ast.Assign) and ast.unparse(node.targets[0]) == "__all__")
    classes = {}
    for file in sorted(PACKAGE.glob("_*.py")):
        name = str(file.relative_to(ROOT))
        for node in ast.parse(file.read_text(encoding="utf-8")).body:
            if isinstance(node, ast.ClassDef) and node.name in offered:
                classes[node.name] = class_entry(node, name)
            if isinstance(node, ast.FunctionDef) and node.name in offered:
                classes[node.name] = PythonEntry(node.name, f"{name}:{node.lineno}", [signature_of(node, "")],
                                                 text_of(node))
    missing = [name for name in offered if name not in classes and not name.startswith("__")]
    about = text_of(tree)
    place = {name: about.find(name) for name in classes}
    return about, sorted(classes.values(), key=lambda entry: place[entry.name]), missing


def columns_of(text):
    """The names of a text's columns 'name   what it is', several of one line apart."""
    names = re.findall(r"(?m)^(\w+(?:, \w+)*) {2,}\S", text)
    return {name for line in names for name in line.split(", ")}


def arguments_of(signature):
    """The names of the arguments that a call may give."""
    call = ast.parse(f"def {signature}: ...").body[0].args
    return [argument.arg for argument in (*call.posonlyargs, *call.args, *call.kwonlyargs)]


def undocumented():
    """Every class, function, method, field and argument of a constructor or function without a text."""
    _, classes, missing = read_package()
    problems = [f"python/plc_client/__init__.py: {name} is nowhere to be found" for name in missing]
    for entry in classes:
        problems += [] if entry.text else [f"{entry.place}: {entry.name} has no text"]
        known = columns_of(entry.text)
        for signature in entry.signatures:
            problems += [f"{entry.place}: {entry.name}: {name} has no text" for name in arguments_of(signature)
                         if name not in known and not re.search(rf"\b{name}\b", entry.text)]
        for member in entry.members:
            if not member.text and member.name not in known and not re.search(rf"\b{member.name}\b", entry.text):
                problems.append(f"{member.place}: {entry.name}.{member.name} has no text")
    return problems
