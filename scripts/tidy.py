"""clang-tidy over the driver and the programs, but only over what it has not passed before (used by scripts/check).

What a file's result depends on is the file, the project's headers that it includes, how it is compiled, the settings
and the version of clang-tidy. scripts/tidy_passed.txt holds the hash of all that for each file that passed; a file
whose hash stands there is not looked at again. A change of any of these, and every file that it reaches is analysed.
"""
import hashlib
import json
import os
import pathlib
import re
import subprocess
from concurrent.futures import ThreadPoolExecutor, as_completed

PASSED = "scripts/tidy_passed.txt"
SETTINGS = ".clang-tidy"
INCLUDE = re.compile(r'^\s*#\s*include\s+[<"]([^>"]+)[>"]', re.M)
BUILD = "build/lint"


class Tidy:
    """The compiled files below some folders, and what clang-tidy says of them."""

    def __init__(self, root, resolve):
        """resolve(file, included text): the project's files that an include may name."""
        self.root = root
        self.resolve = resolve
        self.texts = {}
        version = subprocess.run(["clang-tidy", "--version"], check=True, text=True, stdout=subprocess.PIPE).stdout
        self.common = re.search(r"version \S+", version)[0] + self.text(SETTINGS)

    def text(self, name):
        if name not in self.texts:
            self.texts[name] = (self.root / name).read_text(encoding="utf-8", errors="replace")
        return self.texts[name]

    def reached(self, name):
        """The file and every project file that it includes, directly or not."""
        found, left = set(), [name]
        while left:
            current = left.pop()
            if current not in found:
                found.add(current)
                for included in INCLUDE.findall(self.text(current)):
                    left += self.resolve(current, included)[:1]
        return sorted(found)

    def fingerprint(self, name, command):
        digest = hashlib.sha256(self.common.encode())
        # The folder of the checkout and the order of words that CMake chooses say nothing about the file.
        digest.update(" ".join(sorted(command.replace(str(self.root), ".").split())).encode())
        for reached in self.reached(name):
            digest.update(f"\0{reached}\0{self.text(reached)}".encode())
        return digest.hexdigest()[:32]

    def fingerprints(self, folders):
        entries = json.loads((self.root / BUILD / "compile_commands.json").read_text(encoding="utf-8"))
        prints = {}
        for entry in entries:
            name = os.path.relpath(entry["file"], self.root)
            if name.split("/")[0] in folders:
                # A file that is compiled more than once is analysed as all of them.
                prints[name] = self.fingerprint(name, prints.get(name, "") + entry["command"])
        return prints

    def analyse(self, name):
        done = subprocess.run(["clang-tidy", "--quiet", "-p", BUILD, "--warnings-as-errors=*", name], cwd=self.root,
                              text=True, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if done.returncode == 0:
            return []
        return [line for line in done.stdout.strip().split("\n") if not re.match(r"\d+ warnings? ", line)]

    def check(self, folders, everything, keep):
        """The findings; with everything also of the files that passed before; with keep the list is written anew."""
        prints = self.fingerprints(folders)
        list_file = self.root / PASSED
        passed = dict(reversed(line.split()) for line in list_file.read_text(encoding="ascii").splitlines()
                      if not line.startswith("#")) if list_file.exists() else {}
        names = [name for name in sorted(prints) if everything or passed.get(name) != prints[name]]
        print(f"clang-tidy: {len(names)} of {len(prints)} files", flush=True)
        found = {}
        with ThreadPoolExecutor(os.cpu_count()) as pool:
            runs = {pool.submit(self.analyse, name): name for name in names}
            for run in as_completed(runs):
                found[runs[run]] = run.result()
                if keep:
                    clean = {name: prints[name] for name in prints if name not in names or found.get(name) == []}
                    self.write_passed(list_file, clean)
        return [line for name in names for line in found[name]]

    @staticmethod
    def write_passed(list_file, prints):
        """Behind every file: a run that is broken off has not been in vain."""
        head = f"# What clang-tidy passed ({pathlib.Path(__file__).name}); written by scripts/check --keep tidy.\n"
        list_file.write_text(head + "".join(f"{prints[name]} {name}\n" for name in sorted(prints)), encoding="ascii")
