#!/usr/bin/env python3
"""Surveys plc-sim with each profile of profiles/, and holds what was found to the profile.

check_profiles.py --host PLC_HOST --sim PLC_SIM --tags TAGFILE
                  --drivers GUARDED WITHOUT_STATUS WITHOUT_VALUE_END WITHOUT_BOTH --contract CONTRACT
                  [--times] [--only NAME...]

For each profile:
- the survey learns it: every key but times is the same; with --times, which wants a machine that does nothing else,
  times are near, and what is told from them is the same: pieces that come by themselves, an answer behind the end
- the profile that was learnt, given to plc-sim and surveyed again, is learnt again
- the build of the guarded driver that the verdict names holds: each variable that is there is read with its own value,
  writes are verified, and what is refused is a failure; no build holds where the verdict is "no", and none with more
  checks than the verdict leaves
- where hosts take the contract build, it gives, again and again, the value of each variable that is there; where it has
  a problem it does not, nor with more names at a time than the survey says
- what the survey has to tell of it is among its questions and settings

What arrives as one cannot be told to be two pieces, and a busy machine lets pieces arrive so. A profile in which they
did, as the report's own figures of pieces say, is surveyed again with a longer pause between them. The last one counts.
"""
import argparse
import json
import math
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import tomllib
from concurrent.futures import ThreadPoolExecutor

PROFILES = pathlib.Path(__file__).resolve().parent / "profiles"
RUN_LIMIT_S = 300
# plc-sim rounds a time down to whole milliseconds, and its timer is up to one of them early; how much longer it may be
# is up to what else this machine does meanwhile.
LONGER_PART, LONGER_MS = 1.5, 100.0
EARLY_MS = 1
EACH_MS, LONGER_EACH_MS = 0.5, 3.0
GAP_PART = 0.5
# A busy machine takes two pieces for one, and hears of an end before the request.
TIMED = ("times", "contract", "replies.piece_bytes", "replies.piece_gap_ms", "connections.half_closed")
# A scope that is longer than names in a directory may be.
LONG_SCOPE = ("Station.Left,INT,,,,,,40,0,0,2,PackagingLineStationSeven\n"
              "Station.Right,DINT,,,,,,41,0,0,2,PackagingLineStationSeven\n")
WRITTEN = {"Motor.Speed": "1234", "Running": "true", "Levels[2]": "-5", "Recipe.Name": "brick", "Main/Step": "7",
           "Limit": "9"}
SCRATCH = ("Motor.Steps", "Axis[2].Ready", "Motor.Fault")
# In the order of --drivers.
BUILDS = ("yes", "without status", "without value end", "without both")
# What plc-sim does beside its profile, by the beginning of the profile's name.
SIM_WORDS = {"34": ("--animate-ms=11",),
             "35": ("--fault=delay 700 on=read every=40 times=always",
                    "--fault=no-reply on=resolve every=97 times=always")}
# A busy machine takes seconds for hundreds of pieces.
SURVEY_WORDS = {"31": ("--timeout", "20")}
# What the survey asks, and what it sets.
TOLD = {"30": ({"pieces", "sequence numbers", "limits", "Limit"}, {"driver": "contract", "batch_names": "14"}),
        "31": ({"pieces"}, {"driver": "guarded"}),
        "32": ({"pieces", "sequence numbers"}, {"driver": "contract", "batch_names": "14"}),
        "33": ({"pieces", "sequence numbers"}, {"driver": None, "batch_names": None}),
        "34": (set(), {"driver": "guarded"}),
        "35": ({"late answers", "requests without an answer"}, {"driver": "guarded", "timeout_s": "10"})}
CONTRACT_ROUNDS = 5
# How the guarded build is chosen where a verdict leaves checks out: builds with more checks than that do not hold.
STRICTER = {"yes": (), "without status": (0,), "without value end": (0,), "without both": (0, 1, 2), "no": (0, 1, 2, 3)}


# Between two pieces, where those with the profile's own pause arrived as one.
LONGER_GAPS_MS = (20, 150)


class Mismatch(Exception):
    """What was found is not so."""


class Joined(Mismatch):
    """The same, and pieces arrived as one: it may be for that."""


def run(words, limit=RUN_LIMIT_S):
    return subprocess.run([str(word) for word in words], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, timeout=limit, check=False, text=True, encoding="utf-8",
                          env={"PATH": os.environ["PATH"], "HOME": "/nonexistent", "LC_ALL": "C.UTF-8",
                               "TMPDIR": os.environ.get("TMPDIR", "/tmp")})


class Bench:
    def __init__(self, options, folder):
        self.options = options
        self.folder = folder
        self.tags = folder / "machine.csv"
        self.tags.write_text(options.tags.read_text(encoding="utf-8").rstrip("\n") + "\n" + LONG_SCOPE,
                             encoding="utf-8")
        self.truth = self.results("read", None, options.drivers[0], ("--all",))

    def sim_words(self, profile, more=()):
        words = ["--sim", self.tags, "--simulator", self.options.sim, "--sim-arg=--sentinel"]
        words += [f"--sim-arg={word}" for word in more]
        return words + ([f"--sim-arg=--profile={profile}"] if profile else [])

    def survey(self, profile, name, more):
        """report.json and profile.toml of a survey of plc-sim with the profile."""
        output = self.folder / name
        sim_words = SIM_WORDS.get(name[:2], ())
        # What changes by itself, or is lost, cannot be written and set back.
        scratch = [] if sim_words else [word for variable in SCRATCH for word in ("--write", variable)]
        done = run([self.options.host, "survey", "--driver", self.options.drivers[0],
                    *self.sim_words(profile, sim_words), "--output", output, "--rate", "1000", "-q", *scratch, *more,
                    *SURVEY_WORDS.get(name[:2], ())])
        if done.returncode not in (0, 1):
            raise Mismatch(f"the survey ends with {done.returncode}: {done.stderr[-500:]}")
        report = json.loads((output / "report.json").read_text(encoding="utf-8"))
        with open(output / "profile.toml", "rb") as file:
            return report, tomllib.load(file)

    def results(self, command, profile, driver, more):
        """Results by name of a command of plc-host on plc-sim with the profile."""
        done = run([self.options.host, command, "--driver", driver, *self.sim_words(profile), "--json", "-q", *more])
        results = {}
        for line in done.stdout.splitlines():
            result = json.loads(line)
            results[result["name"]] = (result["state"], result.get("value"))
        return results


def is_near(wanted, found, key):
    if "each" in key:
        return wanted - EACH_MS <= found <= wanted * LONGER_PART + LONGER_EACH_MS
    # A piece that is received late is followed the sooner by the next one.
    least = wanted * GAP_PART if "gap" in key else math.floor(wanted) - EARLY_MS
    return least <= found <= wanted * LONGER_PART + LONGER_MS


def refused_of(profile):
    return sorted((row["name"], row.get("program", ""), row.get("what", "name"), row.get("shape", ""),
                   row.get("status", 0)) for row in profile.get("refused", []))


def compare(wanted, found, ignored):
    """Every key that the wanted profile has, in the one that was found."""
    for section, keys in wanted.items():
        if section in ("survey", "settings", "refused", *ignored):
            continue
        for key, value in keys.items():
            other = found.get(section, {}).get(key)
            if f"{section}.{key}" in ignored:
                continue
            if other is None and value is not None:
                raise Mismatch(f"[{section}] {key}: {value} was not found")
            if key.endswith("_ms"):
                if not is_near(value, other, key):
                    raise Mismatch(f"[{section}] {key}: {value}, found {other}")
            elif other != value:
                raise Mismatch(f"[{section}] {key}: {value}, found {other}")
    if refused_of(wanted) != refused_of(found):
        raise Mismatch(f"refused: {refused_of(wanted)}, found {refused_of(found)}")


class Truth:
    """What must be read of each variable where the guarded build holds."""

    def __init__(self, values, profile, build):
        self.values = values
        self.refused = {row["name"] for row in profile.get("refused", [])}
        # A date has no width that this build knows: what lies behind it is shown with it.
        self.has_tail = "value end" in BUILDS[build] or "both" in BUILDS[build]

    def problem(self, name, state, value):
        """Why the result is not the truth; empty when it is."""
        wanted_state, wanted = self.values[name]
        if state != "good":
            is_excused = name in self.refused or state == wanted_state
            return "" if is_excused else f"{name} is {wanted}, and is not read: {state}"
        if name in self.refused:
            return f"{name} is refused, and is read as {value}"
        if self.has_tail and name.startswith("Clock.") and value.startswith(wanted):
            return ""
        return "" if value == wanted else f"{name} is {wanted}, and is read as {value}"


def why_not_held(bench, path, build):
    """The first thing that is not the truth; empty when all is."""
    profile = tomllib.loads(path.read_text(encoding="utf-8"))
    driver = bench.options.drivers[build]
    # Hosts that take what was learnt ask for no more at a time than the controller answers.
    taken = ("--profile", bench.folder / path.stem / "profile.toml")
    truth = Truth(bench.truth, profile, build)
    for command in ("read", "batch"):
        results = bench.results(command, path, driver, ("--all", *taken))
        for name in truth.values:
            problem = truth.problem(name, *results.get(name, ("absent", None)))
            if problem:
                return f"{command}: {problem}"
    written = bench.results("write", path, driver,
                            ("--verify", *taken, *(f"{name}={value}" for name, value in WRITTEN.items())))
    for name in WRITTEN:
        wanted = name not in truth.refused
        if (written.get(name, ("absent",))[0] == "verified") != wanted:
            return f"{name} is written: {written.get(name)}"
    return ""


def check_truth(bench, path, usable):
    for build in STRICTER[usable]:
        if not why_not_held(bench, path, build):
            raise Mismatch(f"the verdict is {usable!r}, and the guarded build holds: {BUILDS[build]}")
    if usable in BUILDS:
        reason = why_not_held(bench, path, BUILDS.index(usable))
        if reason:
            raise Mismatch(f"the verdict is {usable!r}, and the guarded build does not hold: {reason}")


def why_contract_not_held(bench, path, taken):
    """The first value of the contract build that is not the truth; empty when all are. It cannot tell refusals: with a
    profile nothing asks for what it lists as refused."""
    refused = {row["name"] for row in tomllib.loads(path.read_text(encoding="utf-8")).get("refused", [])}
    for command in ("read", "batch"):
        results = bench.results(command, path, bench.options.contract, ("--all", *taken))
        for name, (state, value) in bench.truth.items():
            found = results.get(name, ("absent", None))
            if taken and name in refused and found[0] in ("good", "unguarded"):
                return f"{command}: {name} is refused, and is read as {found}"
            if state == "good" and name not in refused and found != ("unguarded", value):
                return f"{command}: {name} is {value}, and is read as {found}"
    return ""


def check_contract(bench, path, learnt):
    pieces = learnt["replies"].get("piece_bytes")
    is_taken = learnt["guarded"]["usable"] == "no"
    # Where replies come in pieces, whoever names the contract build has to get right values with the profile too.
    if not is_taken and not pieces:
        return
    taken = ("--profile", bench.folder / path.stem / "profile.toml")
    if "problem" in learnt.get("contract", {}):
        if not why_contract_not_held(bench, path, taken):
            raise Mismatch("the contract build is said to have a problem, and holds")
        return
    for _ in range(CONTRACT_ROUNDS):
        reason = why_contract_not_held(bench, path, taken)
        if reason:
            raise Mismatch(f"the contract build is said to be usable, and does not hold: {reason}")
    # A machine that is busy elsewhere hands over several pieces as one.
    if is_taken and pieces and not any(why_contract_not_held(bench, path, ()) for _ in range(CONTRACT_ROUNDS)):
        raise Joined(f"pieces of {pieces} bytes, and the contract build needs no limit of names")


def check_told(path, report, learnt):
    if path.stem[:2] not in TOLD:
        return
    wanted, settings = TOLD[path.stem[:2]]
    asked = {question["about"] for question in report["questions"]}
    if not wanted <= asked:
        raise Mismatch(f"no question on {wanted - asked}; the questions are on {asked}")
    found = {one["setting"]: one["value"] for one in report["recommendations"]}
    for setting, value in settings.items():
        if found.get(setting) != value:
            raise Mismatch(f"{setting} is to be {value}, and is {found.get(setting)}")
    variables = report["variables"]["findings"]
    if path.stem[:2] in SIM_WORDS:
        wrong = [(one["name"], one["why"]) for one in variables if one["state"] not in ("good", "not tried")]
        if wrong or learnt.get("limits"):
            raise Mismatch(f"what moves or is lost is taken for more: {wrong} {learnt.get('limits')}")
    if path.stem[:2] == "34" and not any(one["changes"] for one in variables):
        raise Mismatch("no variable is said to change")


def are_joined(wanted, report):
    """Some piece that arrived is larger than those that were sent."""
    sent = wanted.get("replies", {}).get("piece_bytes")
    return bool(sent) and any(size > sent for split in report["times"]["splits"] for way in split["ways"]
                              for size in way["pieces"])


def check(bench, path):
    """With the profile as it is; where pieces arrived as one, with longer pauses between them."""
    for gap_ms in LONGER_GAPS_MS:
        try:
            return check_as_it_is(bench, path)
        except Joined as joined:
            print(f"{path.stem}: pieces arrived as one ({joined}); again, {gap_ms} ms apart", flush=True)
            path = with_gap(bench, path, gap_ms)
    return check_as_it_is(bench, path)


def with_gap(bench, path, gap_ms):
    """A copy of the profile in a folder of its own; what else is made for the profile has the name of its file."""
    text = re.sub(r"(?m)^piece_gap_ms = .*\n", "", path.read_text(encoding="utf-8"))
    copy = bench.folder / f"gap_{gap_ms}" / path.name
    copy.parent.mkdir(exist_ok=True)
    copy.write_text(re.sub(r"(?m)^(piece_bytes = .*)$", rf"\1\npiece_gap_ms = {gap_ms}", text), encoding="utf-8")
    shutil.rmtree(bench.folder / path.stem)
    shutil.rmtree(bench.folder / f"{path.stem}_again", ignore_errors=True)
    return copy


def is_slow_directory(wanted):
    """Its answers take as long as the whole survey of another one."""
    return wanted.get("times", {}).get("directory_ms", 0) > 1000


def gentle_words(wanted):
    return ("--gentle",) if is_slow_directory(wanted) else ()


def check_as_it_is(bench, path):
    with open(path, "rb") as file:
        wanted = tomllib.load(file)
    report, learnt = bench.survey(path, path.stem, gentle_words(wanted))
    try:
        check_learnt(bench, path, wanted, report, learnt)
    except Joined:
        raise
    except Mismatch as mismatch:
        if are_joined(wanted, report):
            raise Joined(str(mismatch)) from mismatch
        raise


def check_learnt(bench, path, wanted, report, learnt):
    is_slow = is_slow_directory(wanted)
    if not report["whole"]:
        raise Mismatch(f"the survey ended: {report['ended']}")
    if report["writes"]["not_set_back"]:
        raise Mismatch(f"not set back: {report['writes']['not_set_back']}")
    # A refusal is seen in every survey; what a connect takes is this machine's.
    left_out = (() if bench.options.times else TIMED) + (("connections",) if is_slow else ())
    compare(wanted, learnt, ("times.connect_ms", "times.write_each_ms", *left_out))
    _, again = bench.survey(bench.folder / path.stem / "profile.toml", path.stem + "_again", gentle_words(wanted))
    compare(learnt, again, ("times.connect_ms", *left_out))
    if wanted["guarded"] != learnt["guarded"]:
        raise Mismatch(f"the truth is {wanted['guarded']}, the verdict {learnt['guarded']}")
    check_told(path, report, learnt)
    if path.stem[:2] not in SIM_WORDS:
        check_truth(bench, path, learnt["guarded"]["usable"])
        check_contract(bench, path, learnt)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--host", required=True, type=pathlib.Path)
    parser.add_argument("--sim", required=True, type=pathlib.Path)
    parser.add_argument("--tags", required=True, type=pathlib.Path)
    parser.add_argument("--drivers", required=True, nargs=4, type=pathlib.Path)
    parser.add_argument("--contract", required=True, type=pathlib.Path)
    parser.add_argument("--times", action="store_true")
    parser.add_argument("--only", nargs="*", default=[])
    options = parser.parse_args()
    profiles = [path for path in sorted(PROFILES.glob("*.toml"))
                if not options.only or any(path.stem.startswith(name) for name in options.only)]
    failures = 0
    with tempfile.TemporaryDirectory(prefix="survey_profiles.") as folder:
        bench = Bench(options, pathlib.Path(folder))

        def attempt(path):
            try:
                check(bench, path)
            except (Mismatch, subprocess.TimeoutExpired, OSError, ValueError, KeyError) as error:
                return f"{type(error).__name__}: {error}"
            return ""

        with ThreadPoolExecutor(max_workers=3) as pool:
            for path, problem in zip(profiles, pool.map(attempt, profiles)):
                print(f"{path.stem}: {problem or 'ok'}", flush=True)
                failures += problem != ""
    if not profiles:
        raise SystemExit("no profile")
    print(f"{len(profiles)} profiles, {failures} failed")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
