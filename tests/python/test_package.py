"""The package as a whole: types, help, examples, documents."""
import csv
import inspect
import json
import os
import pathlib
import re
import sqlite3
import subprocess
import sys

import plc_client
import pytest
from conftest import ROOT, TAGS

EXAMPLES = ROOT / "examples" / "python"
PACKAGE = pathlib.Path(plc_client.__file__).parent


def run(*words, **options):
    """A program's end: what it printed on both outputs, and its code."""
    environment = {**os.environ, "PYTHONPATH": str(PACKAGE.parent), "PYTHONDONTWRITEBYTECODE": "1"}
    done = subprocess.run([sys.executable, *map(str, words)], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, env=environment, timeout=280, check=False, **options)
    return done.returncode, done.stdout


def test_types_are_sound_for_the_package_and_the_examples():
    code, said = run("-m", "mypy", "--config-file", ROOT / "pyproject.toml", "--strict", "--python-version=3.9",
                     PACKAGE, *sorted(EXAMPLES.glob("*.py")))
    assert code == 0, said


def test_stubs_say_what_the_compiled_half_has():
    allowed = pathlib.Path(__file__).with_name("stub_differences.txt")
    code, said = run("-m", "mypy.stubtest", "--allowlist", allowed, "plc_client._core")
    assert code == 0, said


def test_types_are_shipped():
    assert (PACKAGE / "py.typed").is_file() and (PACKAGE / "_core.pyi").is_file()


def public_things():
    for name in plc_client.__all__:
        thing = getattr(plc_client, name)
        if not inspect.isclass(thing):
            continue
        yield name, thing
        for member, value in vars(thing).items():
            if not member.startswith("_") and (inspect.isfunction(value) or isinstance(value, property)):
                yield f"{name}.{member}", value


def test_everything_public_says_what_it_is():
    assert plc_client.__doc__
    without = [name for name, thing in public_things() if not (thing.__doc__ or "").strip()]
    assert without == []
    explained = re.findall(r"\w+", plc_client.__doc__)
    assert [name for name, _ in public_things() if "." not in name and name not in explained] == []


def test_fields_of_records_are_explained():
    for record in (plc_client.Reading, plc_client.WriteResult, plc_client.Declaration, plc_client.State):
        explained = re.findall(r"^    (\w+(?:, \w+)*)  ", record.__doc__, re.M)
        assert ", ".join(explained).split(", ") == list(record._fields)


def test_help_fits_a_terminal():
    code, said = run("-c", "import plc_client; help(plc_client)")
    assert code == 0
    assert "watch(self, names" in said and "reply_timeout  seconds" in said


def test_the_first_program_is_that_of_the_readme_and_prints_the_speed():
    code, said = run(EXAMPLES / "first.py", cwd=ROOT)
    assert (code, said) == (0, "120\n")


def python_blocks(document):
    text = (ROOT / document).read_text(encoding="utf-8")
    return re.findall(r"^```python\n(.*?)^```$", text, re.M | re.S)


def test_the_document_shows_what_runs(machine, monkeypatch, tmp_path):
    """Its blocks, one after the other, with the controller that they name played by the simulated one."""
    real = plc_client.Controller
    monkeypatch.setattr(plc_client, "Controller",
                        lambda address, **options: real(machine.address, **{**options, "port": machine.port}))
    monkeypatch.chdir(ROOT / "examples")
    blocks = python_blocks("docs/python.md")
    assert len(blocks) >= 5
    names = {}
    for block in blocks:
        exec(compile(block, "docs/python.md", "exec"), names)


def logged(machine, *words):
    return run(EXAMPLES / "logger.py", "--address", machine.address, "--port", machine.port, "--tags", TAGS,
               "--period", 0, *words)


def test_logger_writes_csv(machine, tmp_path):
    file = tmp_path / "log.csv"
    for _ in range(2):
        assert logged(machine, "--csv", file, "--count", 2, "Motor.Speed", "Table", "Running",
                      "Motor.Serial") == (0, "")
    with file.open(newline="", encoding="utf-8") as lines:
        head, *rows = csv.reader(lines)
    assert head == ["time", "name", "type", "value", "error"]
    assert len(rows) == 16
    assert [row[1:] for row in rows[:4]] == [
        ["Motor.Speed", "DINT", str(machine.get("Motor.Speed")), ""],
        ["Table", "INT[0..9]", json.dumps(machine.get("Table")), ""],
        ["Running", "BOOL", str(int(machine.get("Running"))), ""],
        ["Motor.Serial", "ULINT", str(machine.get("Motor.Serial")), ""]]


@pytest.mark.parametrize("text, cell", [
    ("=1+cmd|x", "'=1+cmd|x"),
    ("-1", "'-1"),
    ("\x1b[31mred\u202e", "\\x1b[31mred\\u{202e}"),
    ('a\nb,c"d', '"a\\nb,c""d"'),
    ("\udcff\udcfe", "\\xff\\xfe"),
    ("ok", "ok"),
])
def test_logger_writes_csv_in_which_texts_are_no_formulas_and_hide_nothing(machine, tmp_path, text, cell):
    file = tmp_path / "log.csv"
    machine.set("Recipe.Name", text)
    machine.set("Motor.Speed", -5)
    assert logged(machine, "--csv", file, "--count", 1, "Recipe.Name", "Motor.Speed") == (0, "")
    lines = file.read_bytes().decode("utf-8").split("\r\n")
    assert [line.partition(",")[2] for line in lines] == ["name,type,value,error", f"Recipe.Name,STRING(20),{cell},",
                                                          "Motor.Speed,DINT,-5,", ""]


def test_logger_puts_infinities_behind_an_apostrophe(machine, tmp_path):
    file = tmp_path / "log.csv"
    machine.set("Motor.Current", float("-inf"))
    assert logged(machine, "--csv", file, "--count", 1, "Motor.Current") == (0, "")
    assert file.read_text(encoding="utf-8").splitlines()[1].partition(",")[2] == "Motor.Current,REAL,'-inf,"


def test_logger_writes_a_text_that_is_not_utf8_into_a_database_as_its_bytes(machine, tmp_path):
    file = tmp_path / "log.db"
    machine.set("Recipe.Name", "a\udcff\udcfe")
    assert logged(machine, "--sqlite", file, "--count", 1, "Recipe.Name") == (0, "")
    assert sqlite3.connect(file).execute("SELECT value FROM readings").fetchall() == [(b"a\xff\xfe",)]


def test_a_cell_of_csv_is_of_a_text():
    assert plc_client.csv_cell("@a;=b") == "'@a;'=b"
    with pytest.raises(plc_client.TypeMismatch, match="^csv_cell: a str, not 5$"):
        plc_client.csv_cell(5)


def test_logger_writes_a_database_and_what_was_not_read(machine, tmp_path):
    file = tmp_path / "log.db"
    machine.fault("refuse on=read times=1")
    assert logged(machine, "--sqlite", file, "--count", 3, "Motor.Speed") == (0, "")
    rows = sqlite3.connect(file).execute("SELECT name, type, value, error FROM readings ORDER BY time").fetchall()
    assert rows[0][:3] == ("Motor.Speed", "DINT", None) and rows[0][3]
    assert rows[1:] == [("Motor.Speed", "DINT", machine.get("Motor.Speed"), None)] * 2


def test_logger_says_what_is_wrong_and_makes_no_file(machine, tmp_path):
    code, said = logged(machine, "--csv", tmp_path / "log.csv", "Motor.Sped")
    assert code == 1
    assert said.startswith("logger.py: ") and "Motor.Speed" in said
    assert list(tmp_path.iterdir()) == []


def test_plot_draws_a_picture(machine, tmp_path):
    picture = tmp_path / "speed.png"
    assert run(EXAMPLES / "plot.py", "--address", machine.address, "--port", machine.port, "--tags", TAGS, "--seconds",
               0.3, "--period", 0.1, "--picture", picture, "Motor.Speed") == (0, "")
    head = picture.read_bytes()
    assert head.startswith(b"\x89PNG\r\n\x1a\n") and len(head) > 5000


@pytest.mark.parametrize("name, fault, words", [
    ("Recipe.Name", "", "plot.py: Recipe.Name is declared STRING(20): "),
    ("Motor.Speed", "gone", "plot.py: Motor.Speed was not read a single time: "),
])
def test_plot_without_a_value_makes_no_picture(machine, tmp_path, name, fault, words):
    if fault:
        machine.fault(fault)
    code, said = run(EXAMPLES / "plot.py", "--address", machine.address, "--port", machine.port, "--tags", TAGS,
                     "--seconds", 0.2, "--period", 0.1, "--picture", tmp_path / "a.png", name)
    assert code == 1 and said.startswith(words), said
    assert list(tmp_path.iterdir()) == []


@pytest.mark.parametrize("program, words", [
    ("plot.py", ["--period", "0", "Motor.Speed"]),
    ("plot.py", ["--seconds", "inf", "Motor.Speed"]),
    ("logger.py", ["--csv", "log.csv", "--count", "-1", "Motor.Speed"]),
])
def test_examples_refuse_numbers_that_make_no_sense(program, words):
    code, said = run(EXAMPLES / program, "--address", "127.0.0.1", "--tags", TAGS, *words)
    assert code == 2 and f"{program}: error: --" in said, said


def test_the_test_of_a_machine_program_passes():
    code, said = run("-m", "pytest", "-q", "-p", "no:cacheprovider", EXAMPLES / "test_cooling.py")
    assert code == 0 and "4 passed" in said, said


def test_the_test_of_a_machine_program_finds_a_mistake(tmp_path):
    for name in ("cooling.py", "test_cooling.py"):
        text = (EXAMPLES / name).read_text(encoding="utf-8")
        (tmp_path / name).write_text(text.replace("current.value > TOO_MUCH", "current.value < TOO_MUCH")
                                     .replace('pathlib.Path(__file__).resolve().parent.parent / "tags"',
                                              f'pathlib.Path("{TAGS}")'), encoding="utf-8")
    code, said = run("-m", "pytest", "-q", "-p", "no:cacheprovider", tmp_path / "test_cooling.py")
    assert code == 1 and "failed" in said, said


def test_machine_program_says_each_step(machine):
    child = subprocess.Popen([sys.executable, EXAMPLES / "cooling.py", "--address", machine.address, "--port",
                              str(machine.port), "--tags", TAGS], stdout=subprocess.PIPE, text=True,
                             env={**os.environ, "PYTHONPATH": str(PACKAGE.parent)})
    machine.set("Motor.Current", 2.5)
    try:
        assert child.stdout.readline() in ("running\n", "resting\n")
    finally:
        child.kill()
        child.wait()
        child.stdout.close()


@pytest.mark.parametrize("name", ["first.py", "logger.py", "plot.py", "cooling.py", "test_cooling.py"])
def test_examples_are_few_lines(name):
    assert (EXAMPLES / name).read_text(encoding="utf-8").count("\n") < 120


def test_the_version_is_that_of_the_project():
    project = (ROOT / "CMakeLists.txt").read_text(encoding="utf-8")
    assert f"project(plc_driver VERSION {plc_client.__version__} " in project
