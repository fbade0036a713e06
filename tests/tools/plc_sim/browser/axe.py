"""Installs axe-core from npm as package-lock.json names it, and asks it whether a page can be used by everybody."""
import json
import pathlib
import shutil
import subprocess

HERE = pathlib.Path(__file__).resolve().parent
INSTALL_LIMIT_S = 120
NEEDED = ("axe-core judges the pages; it is installed once from npm's registry, which must be reachable then, "
          "or from npm's own copies")


def install(folder):
    """The source of axe-core. What is there of an earlier run with the same lock file is taken."""
    folder = pathlib.Path(folder)
    source = folder / "node_modules" / "axe-core" / "axe.min.js"
    lock = (HERE / "package-lock.json").read_text(encoding="utf-8")
    installed = folder / "installed-lock.json"
    if not (source.exists() and installed.exists() and installed.read_text(encoding="utf-8") == lock):
        run_npm(folder)
        installed.write_text(lock, encoding="utf-8")
    return source.read_text(encoding="utf-8")


def run_npm(folder):
    npm = shutil.which("npm")
    if npm is None:
        raise SystemExit(f"there is no npm: {NEEDED}. Try: scripts/setup tools")
    folder.mkdir(parents=True, exist_ok=True)
    for name in ("package.json", "package-lock.json"):
        shutil.copy(HERE / name, folder / name)
    try:
        done = subprocess.run([npm, "ci", "--ignore-scripts", "--no-audit", "--no-fund", "--prefer-offline",
                               "--fetch-retries=1", "--loglevel=error"], cwd=folder, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=INSTALL_LIMIT_S)
    except subprocess.TimeoutExpired:
        raise SystemExit(f"npm did not end within {INSTALL_LIMIT_S} s: {NEEDED}") from None
    if done.returncode != 0:
        raise SystemExit(f"npm ended with {done.returncode}: {NEEDED}. It said:\n{done.stdout}")


def findings(browser, source):
    """What axe-core finds on the page that is open: a line for each place, with the rule and how to repair it."""
    browser.evaluate(source + "; 1")
    found = json.loads(browser.evaluate(
        "axe.run({resultTypes: ['violations']}).then(found => JSON.stringify(found.violations))"))
    return [f"{rule['id']}: {rule['help']}: {node['html'][:200]}: {node['failureSummary']}"
            for rule in found for node in rule["nodes"]]
