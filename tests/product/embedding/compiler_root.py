"""A root that holds CMake, make and a compiler, and what these Debian packages depend on, copied from this machine: no
library, program or test framework besides. Needs neither a network nor another machine's packages."""
import os
import pathlib
import re
import shutil
import subprocess

PACKAGES = ("cmake", "make", "gcc", "g++", "coreutils", "dash")
# What no build reads.
LEFT_OUT = re.compile(r"/usr/share/(doc|man|info|locale|lintian|bash-completion)/")
# What the packages' scripts would have made when they were installed.
ALTERNATIVES = {"cc": "gcc", "c++": "g++"}


def run(command, **options):
    return subprocess.run([str(word) for word in command], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=True, timeout=120, **options).stdout


def package_names(field):
    """A dependency field as lists of alternatives, without versions and architectures."""
    return [[re.split(r"[ (:]", name.strip())[0] for name in choice.split("|")]
            for choice in field.split(",") if choice.strip()]


def with_dependencies(packages):
    """The installed packages that these need, themselves included."""
    table = run(["dpkg-query", "-W", "-f", "${Package}\t${Provides}\t${Pre-Depends}, ${Depends}\n"])
    needs = {}
    providers = {}
    for line in table.strip().split("\n"):
        name, provides, depends = line.split("\t")
        needs[name] = package_names(depends)
        for provided in package_names(provides):
            providers.setdefault(provided[0], name)
    found = set()
    wanted = list(packages)
    while wanted:
        name = wanted.pop()
        if name not in found:
            found.add(name)
            for choice in needs[name]:
                named = (one if one in needs else providers.get(one) for one in choice)
                wanted += [known for known in named if known][:1]
    return sorted(found)


def make_root(root):
    """Fills an empty folder with the packages' files."""
    shutil.rmtree(root, ignore_errors=True)
    root.mkdir(parents=True)
    listed = set(run(["dpkg", "-L", *with_dependencies(PACKAGES)]).split("\n"))
    for name in ("bin", "sbin", "lib", "lib32", "lib64", "libx32"):  # a merged /usr
        if os.path.islink("/" + name):
            (root / name).symlink_to(os.readlink("/" + name))
    for name in sorted(listed):
        if name.startswith("/usr/") or name.startswith(("/lib", "/bin", "/sbin")):
            copy_file(pathlib.Path(name), root)
    for name, target in ALTERNATIVES.items():
        (root / "usr/bin" / name).symlink_to(target)
    for folder in ("dev", "tmp", "driver"):
        (root / folder).mkdir()


def copy_file(path, root):
    """One file or link to its place in the root."""
    if LEFT_OUT.match(str(path)) or not os.path.lexists(path) or (path.is_dir() and not path.is_symlink()):
        return
    target = root / os.path.join(os.path.realpath(path.parent), path.name).lstrip("/")
    if os.path.lexists(target):
        return
    target.parent.mkdir(parents=True, exist_ok=True)
    if path.is_symlink():
        target.symlink_to(os.readlink(path))
    else:
        shutil.copy2(path, target)


def command_in_root(root, command):
    """The words that run a command with this root and its own mounts; a user who is not root is one in a namespace."""
    namespace = ["unshare", "--mount"] if os.geteuid() == 0 else ["unshare", "--map-root-user", "--mount"]
    return [*namespace, "sh", "-c", 'mount --rbind /dev "$0/dev" && exec chroot "$0" "$@"', root,
            "/usr/bin/env", "-i", "PATH=/usr/bin:/bin", "LC_ALL=C", *command]
