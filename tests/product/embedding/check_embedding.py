#!/usr/bin/env python3
"""Builds the driver as other projects do and runs what comes out.

check_embedding.py CHECK --work FOLDER --sim PLC_SIM [--cmake CMAKE] [--toolchain FILE]

CHECK is one of:
  alone          on a machine with CMake, make and a compiler; the configuration says what it leaves out
  subdirectory   as a subdirectory of another project, which stays as it was
  fetch          with FetchContent, of a project without C++
  package        installed, found by CMake and by pkg-config, linked shared and static, by C alone
  client         the C++ client as a part of another project, and installed from there
  flags          the user's flags stay as they are, and what is installed is optimised in every build type
  options        what is asked for and cannot be built ends the configuration
  musl           with musl's headers and C library: without warnings, and the hosts in C do what they do elsewhere
  packages       scripts/package replaces its own files in a folder, touches no others, and signs their checksums
  scripts        every script answers --help, and does nothing else then

--cmake and --toolchain take another CMake, and other compilers, for subdirectory, fetch and package.
"""
import argparse
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

sys.dont_write_bytecode = True
from compiler_root import command_in_root, make_root  # noqa: E402

TESTS = pathlib.Path(__file__).resolve().parent
ROOT = TESTS.parent.parent.parent
EXAMPLES = ROOT / "examples" / "host"
VERSION = re.search(r"^project\(plc_driver VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text(encoding="utf-8"),
                    re.M)[1]
RUN_LIMIT_S = 600
# The targets that a project links, and what the driver then says of itself.
LIBRARIES = {"plc_driver": "contract", "plc_driver_guarded": "guarded", "plc_driver_static": "contract",
             "plc_driver_guarded_static": "guarded"}
# What a plain build makes.
BUILT = ("libplc_driver.so", "libplc_driver.a", "guarded/libplc_driver.so", "guarded/libplc_driver.a")
# What an embedder's machine lacks, as the summary names it.
PACKAGES_OF_TOOLS = ("pkg-config", "libuv1-dev", "libcli11-dev", "nlohmann-json3-dev", "libpcap-dev",
                     "libmicrohttpd-dev", "libtomlplusplus-dev", "python3")
PACKAGES_OF_TESTS = ("googletest", "python3", "tshark")
NO_DRIVER_ELSEWHERE = ("-DPLC_BUILD_TOOLS=OFF", "-DPLC_BUILD_TESTS=OFF")


class Failure(Exception):
    """What a check found, for its last line."""


def attempt(command, **options):
    """Exit code and output. The caller's compiler flags are not those of the builds here."""
    own = {name: value for name, value in os.environ.items() if name not in ("CFLAGS", "CXXFLAGS", "LDFLAGS")}
    done = subprocess.run([str(word) for word in command], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False, timeout=RUN_LIMIT_S,
                          **{"env": own, **options})
    return done.returncode, done.stdout


def run(command, **options):
    code, output = attempt(command, **options)
    if code != 0:
        raise Failure(f"{' '.join(map(str, command))}: exit code {code}\n{output}")
    return output


def demand(true, text):
    if not true:
        raise Failure(text)


def run_check(checks):
    """The main function of a script whose checks need a folder alone: its exit code."""
    parser = argparse.ArgumentParser()
    parser.add_argument("check", choices=checks)
    parser.add_argument("--work", required=True, type=pathlib.Path)
    options = parser.parse_args()
    try:
        checks[options.check](options.work.resolve())
    except Failure as failure:
        print(failure)
        return 1
    return 0


def clean_folder(path):
    shutil.rmtree(path, ignore_errors=True)
    path.mkdir(parents=True)
    return path


class Builder:
    """CMake with the compilers of this run."""

    def __init__(self, options):
        self.cmake = options.cmake
        self.sim = options.sim
        self.settings = [f"-DCMAKE_TOOLCHAIN_FILE={options.toolchain}"] if options.toolchain else []

    def configure(self, source, build, *settings):
        return run([self.cmake, "-S", source, "-B", build, *self.settings, *settings])

    def build(self, build, *arguments):
        return run([self.cmake, "--build", build, "-j", str(os.cpu_count()), *arguments])

    def install(self, build, prefix):
        return run([self.cmake, "--install", build, "--prefix", prefix])


def installed_files(prefix):
    return sorted(str(path.relative_to(prefix)) for path in prefix.rglob("*") if path.is_symlink() or path.is_file())


def demand_name(program, build):
    said = run([program]).strip()
    demand(said == f"{VERSION} {build}", f"{program} says '{said}', not '{VERSION} {build}'")


def demand_values(program, sim):
    """The example host reads every value that is set in a simulated controller."""
    run([sys.executable, "-B", ROOT / "tests/driver/c_host/run_example.py", "--sim", sim, "--tags",
         ROOT / "examples/tags/PLC7F000001_0.csv", "--", program])


def demand_c_library_alone(program):
    """A program that holds the driver needs no more than the C library."""
    needed = re.findall(r"\(NEEDED\).*\[(.*)\]", run(["readelf", "-d", program]))
    demand(needed in (["libc.so.6"], ["libc.so"]), f"{program} needs {needed}")


def demand_hosts(build, sim):
    for library, name in LIBRARIES.items():
        demand_name(build / f"name_{library}", name)
        demand_values(build / f"read_{library}", sim)
        if library.endswith("_static"):
            demand_c_library_alone(build / f"name_{library}")


def configure_host(builder, how, driver, build, languages, *settings):
    return builder.configure(TESTS / "host", build, f"-DDRIVER_FROM={how}", f"-DDRIVER={driver}",
                             f"-DEXAMPLES={EXAMPLES}", f"-DHOST_LANGUAGES={languages}", *settings)


def check_alone(_builder, work):
    root = work / "root"
    make_root(root)
    shutil.copytree(ROOT, root / "driver", dirs_exist_ok=True, ignore=shutil.ignore_patterns("build", ".git"))
    for absent in ("ninja", "python3", "pkg-config", "git", "tshark", "chromium"):
        code, _ = attempt(command_in_root(root, ["sh", "-c", f"command -v {absent}"]))
        demand(code != 0, f"the root has {absent}")
    said = run(command_in_root(root, ["cmake", "-S", "/driver", "-B", "/tmp/build"]))
    for what, packages in (("tools", PACKAGES_OF_TOOLS), ("tests", PACKAGES_OF_TESTS)):
        line = re.search(rf"^--   {what}: left out, missing: (.*)$", said, re.M)
        demand(line, f"the configuration does not say that it leaves out the {what}:\n{said}")
        for package in packages:
            demand(f"(package {package})" in line[1], f"{package} is not named for the {what}: {line[1]}")
    demand(re.search(r"^-- plc_driver [\d.]+ builds: driver$", said, re.M), said)
    run(command_in_root(root, ["cmake", "--build", "/tmp/build", "-j", str(os.cpu_count())]))
    for name in BUILT:
        demand((root / "tmp/build/src" / name).is_file(), f"{name} was not built")
    run(command_in_root(root, ["cmake", "--install", "/tmp/build", "--prefix", "/tmp/prefix"]))
    libraries = [f"/{path.parent.relative_to(root)}" for path in (root / "tmp/prefix").glob("lib*/libplc_driver.so")]
    demand(len(libraries) == 1, f"the library is installed in {libraries}")
    run(command_in_root(root, ["cc", "-I/tmp/prefix/include", "/driver/tests/product/embedding/host/build_name.c",
                               f"-L{libraries[0]}", "-lplc_driver", "-o", "/tmp/host"]))
    said = run(command_in_root(root, ["env", f"LD_LIBRARY_PATH={libraries[0]}", "/tmp/host"])).strip()
    demand(said == f"{VERSION} contract", f"the host says '{said}'")
    code, said = attempt(command_in_root(root, ["cmake", "-S", "/driver", "-B", "/tmp/all", "-DPLC_BUILD_TOOLS=ON"]))
    demand(code != 0 and "PLC_BUILD_TOOLS=ON" in said and "libuv1-dev" in said, f"asked for the tools:\n{said}")
    shutil.rmtree(root)


def check_subdirectory(builder, work):
    build = clean_folder(work) / "build"
    configure_host(builder, "subdirectory", ROOT, build, "C;CXX", "-DCMAKE_BUILD_TYPE=Release")
    builder.build(build)
    demand_hosts(build, builder.sim)
    for name in ("CPackConfig.cmake", "driver/packaging", "driver/tools", "driver/tests"):
        demand(not (build / name).exists(), f"the driver brings {name}")
    builder.install(build, work / "prefix")
    demand(not (work / "prefix").exists(), "the driver installs into its user's prefix, unasked")
    # Asked, it installs what building against it needs, and no package description of its own.
    configure_host(builder, "subdirectory", ROOT, build, "C;CXX", "-DPLC_INSTALL=ON")
    builder.build(build)
    builder.install(build, work / "prefix")
    installed = installed_files(work / "prefix")
    expected = [f"lib/{name}" for name in ("libplc_driver.so.1", "libplc_driver.a",
                                           "cmake/plc_driver/plc_driverConfig.cmake", "pkgconfig/plc_driver.pc",
                                           "plc_driver/guarded/libplc_driver.so.1")] + ["include/plc_driver.h"]
    demand(set(expected) <= set(installed) and not any(name.startswith(("bin", "share")) for name in installed),
           f"installed: {installed}")
    demand(not (build / "CPackConfig.cmake").exists(), "the driver brings a CPack configuration")


def check_fetch(builder, work):
    build = clean_folder(work) / "build"
    configure_host(builder, "fetch", ROOT, build, "C", "-DCMAKE_BUILD_TYPE=Debug")
    builder.build(build)
    demand_hosts(build, builder.sim)


def check_package(builder, work):
    clean_folder(work)
    builder.configure(ROOT, work / "driver", *NO_DRIVER_ELSEWHERE, "-DCMAKE_INSTALL_LIBDIR=lib")
    builder.build(work / "driver")
    prefix = work / "prefix"
    builder.install(work / "driver", work / "first")
    (work / "first").rename(prefix)  # it works from wherever it lies
    for languages in ("C", "C;CXX"):
        build = work / f"host-{len(languages)}"
        configure_host(builder, "package", prefix, build, languages, "-G", "Unix Makefiles")
        builder.build(build)
        for library in LIBRARIES:
            line = (build / f"CMakeFiles/name_{library}.dir/link.txt").read_text(encoding="utf-8")
            demand("c++" not in line.split()[0] and "g++" not in line.split()[0], f"C++ links a host in C: {line}")
        demand_hosts(build, builder.sim)
    if not builder.settings:
        check_pkg_config(work, prefix)


CLIENT_PROJECT = """cmake_minimum_required(VERSION 3.16)
project(embedding_client LANGUAGES C CXX)
include(GNUInstallDirs)
add_subdirectory({root} driver)
add_executable(read_variables {root}/examples/client/read_variables.cpp)
target_link_libraries(read_variables PRIVATE plc_driver::client)
"""


def demand_names(program, sim):
    """The example program reads variables by name, and needs the client and the libraries of C and C++ alone."""
    run([sys.executable, "-B", ROOT / "tests/client/run_example.py", "--sim", sim, "--tags", ROOT / "examples/tags",
         "--", program])
    needed = set(re.findall(r"\(NEEDED\).*\[(.*)\]", run(["readelf", "-d", program])))
    demand(needed <= {"libplc_client.so.1", "libstdc++.so.6", "libgcc_s.so.1", "libc.so.6"}, f"it needs {needed}")


def check_client(builder, work):
    source = clean_folder(work) / "project"
    source.mkdir()
    (source / "CMakeLists.txt").write_text(CLIENT_PROJECT.format(root=ROOT), encoding="utf-8")
    builder.configure(source, work / "build", "-DPLC_BUILD_CLIENT=ON", "-DPLC_INSTALL=ON", "-DPLC_MERGED_SOURCES=ON",
                      "-DCMAKE_BUILD_TYPE=", "-DCMAKE_INSTALL_LIBDIR=lib/somewhere")
    builder.build(work / "build")
    demand_names(work / "build/read_variables", builder.sim)
    builder.install(work / "build", work / "first")
    prefix = work / "prefix"
    (work / "first").rename(prefix)
    demand((prefix / "include/plc_client.h").is_file(), f"it installs {installed_files(prefix)}")
    examples = [ROOT / "examples/client", work / "examples"]
    builder.configure(*examples, f"-DCMAKE_PREFIX_PATH={prefix / 'lib/somewhere/cmake'}")
    builder.build(work / "examples", "--target", "read_variables")
    demand_names(work / "examples/read_variables", builder.sim)
    # Without the client's own files the package is whole, and has no such component.
    (prefix / "lib/somewhere/cmake/plc_driver/plc_clientTargets.cmake").unlink()
    code, said = attempt([builder.cmake, "-S", examples[0], "-B", work / "without",
                          f"-DCMAKE_PREFIX_PATH={prefix / 'lib/somewhere/cmake'}"])
    said = re.sub(r"\s+", " ", said)
    demand(code != 0 and "its component client is not installed (package libplc-client-dev)" in said, said)


def check_pkg_config(work, prefix):
    def link(name, *flags, with_flags_of=None, more=()):
        words = [] if not with_flags_of else run(
            ["pkg-config", *more, "--cflags", "--libs", with_flags_of],
            env={**os.environ, "PKG_CONFIG_LIBDIR": str(prefix / "lib/pkgconfig")}).split()
        run(["cc", TESTS / "host/build_name.c", "-o", work / name, *words, *flags])
        return work / name

    def variable(module, name):
        return run(["pkg-config", f"--variable={name}", module],
                   env={**os.environ, "PKG_CONFIG_LIBDIR": str(prefix / "lib/pkgconfig")}).strip()

    for module, build in (("plc_driver", "contract"), ("plc_driver_guarded", "guarded")):
        shared = link(f"shared_{build}", f"-Wl,-rpath,{prefix}/lib", with_flags_of=module)
        demand_name(shared, build)
        static = link(f"static_{build}", f"-I{prefix}/include", variable(module, "archive"))
        demand_name(static, build)
        demand_c_library_alone(static)
        whole = link(f"whole_{build}", "-static", with_flags_of=module, more=("--static",))
        demand_name(whole, build)
        demand("NEEDED" not in run(["readelf", "-d", whole]), f"{whole} is not static")


def optimisations(command):
    return re.findall(r"(?<=\s)-O\w*", command)


def check_flags(builder, work):
    clean_folder(work)
    builder.configure(ROOT, work / "user", "-G", "Ninja", *NO_DRIVER_ELSEWHERE, "-DCMAKE_BUILD_TYPE=Release",
                      "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON")
    for entry in commands_of(work / "user"):
        demand(optimisations(entry["command"]) == ["-O3"], f"not as the user says: {entry['command']}")
        demand("-Werror" not in entry["command"], f"warnings are errors unasked: {entry['command']}")
    # Flags without a build type are the user's whole word.
    builder.configure(ROOT, work / "own", "-G", "Ninja", *NO_DRIVER_ELSEWHERE, "-DCMAKE_C_FLAGS=-O3",
                      "-DCMAKE_CXX_FLAGS=-O3")
    for entry in commands_of(work / "own"):
        demand(optimisations(entry["command"]) == ["-O3"], f"not as the user says: {entry['command']}")
    # Everything, tests too, in every build type: what is installed has the type's optimisation, and no other.
    builder.configure(ROOT, work / "all", "-G", "Ninja Multi-Config", "-DPLC_BUILD_TOOLS=ON", "-DPLC_BUILD_TESTS=ON",
                      "-DCMAKE_CONFIGURATION_TYPES=Release;RelWithDebInfo;MinSizeRel")
    wanted = {"Release": ["-O3"], "RelWithDebInfo": ["-O2"], "MinSizeRel": ["-Os"]}
    seen = set()
    for entry in commands_of(work / "all"):
        is_ours = entry["file"].startswith(f"{ROOT}/")
        room = pathlib.PurePath(entry["file"]).relative_to(ROOT).parts[0] if is_ours else ""
        build_type = re.search(r'CMAKE_INTDIR=\\*"(\w+)', entry["command"])[1]
        if room in ("src", "base", "wire", "client", "tag_check", "tools"):
            seen.add((room, build_type))
            demand(optimisations(entry["command"]) == wanted[build_type], f"not optimised: {entry['command']}")
    for room in ("src", "wire", "client", "tag_check", "tools"):
        demand({(room, build_type) for build_type in wanted} <= seen, f"{room} is not compiled in every build type")
    # The presets of builds with unoptimised tools install nothing.
    run([builder.cmake, "--preset", "clang", "-B", work / "clang", "-Wno-dev"], cwd=ROOT)
    code, said = attempt([builder.cmake, "--install", work / "clang", "--prefix", work / "prefix"])
    demand(code != 0 and "PLC_INSTALL=OFF" in said and not (work / "prefix").exists(), said)


def check_musl(builder, work):
    build = clean_folder(work) / "hosts"
    toolchain = f"-DCMAKE_TOOLCHAIN_FILE={ROOT / 'cmake/musl.cmake'}"
    builder.configure(TESTS / "c_hosts", build, "-G", "Ninja", toolchain, "-DCMAKE_BUILD_TYPE=Release",
                      "-DPLC_WARNINGS=ON", "-DPLC_WERROR=ON", f"-DDRIVER={ROOT}", f"-DSIMULATOR={builder.sim}")
    builder.build(build)
    for name in ("libplc_driver.so", "guarded/libplc_driver.so"):
        needed = re.findall(r"\(NEEDED\).*\[(.*)\]", run(["readelf", "-d", build / "driver/src" / name]))
        demand(needed == ["libc.so"], f"{name} needs {needed}")
    said = run(["ctest", "--no-tests=error", "--output-on-failure", "--exclude-regex", "LoadedThreeTimes"], cwd=build)
    demand("100% tests passed, 0 tests failed out of 5" in said, said)
    # This C library never unloads: a host begins anew with ev_plc_init alone.
    for name in ("libplc_driver.so", "guarded/libplc_driver.so"):
        _, said = attempt([build / "c_host/c_dlopen_host", build / "driver/src" / name])
        demand("failed in load 1: the library stayed loaded" in said, said)
        archive = build / "driver/src" / name.replace(".so", ".a")
        run(["musl-gcc", "-static", f"-I{ROOT}/include", EXAMPLES / "read_value.c", archive, "-o", work / "static"])
        demand_values(work / "static", builder.sim)


def commands_of(build):
    commands = json.loads((build / "compile_commands.json").read_text(encoding="utf-8"))
    demand(commands, f"{build} compiles nothing")
    return commands


def check_options(builder, work):
    clean_folder(work)
    hidden = "-DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON"
    said = builder.configure(ROOT, work / "auto", "-G", "Ninja", hidden, "-DPLC_BUILD_TESTS=OFF")
    demand(re.search(r"^--   tools: left out, missing: CLI11 \(package libcli11-dev\)$", said, re.M), said)
    asked = [builder.cmake, "-S", ROOT, "-B", work / "asked", "-G", "Ninja", hidden, "-DPLC_BUILD_TOOLS=ON"]
    code, said = attempt(asked)
    demand(code != 0 and "CLI11 (package libcli11-dev)" in re.sub(r"\s+", " ", said), said)
    code, said = attempt([builder.cmake, "-S", ROOT, "-B", work / "both", "-G", "Ninja", *NO_DRIVER_ELSEWHERE,
                          "-DPLC_UNOPTIMIZED_TOOLS=ON", "-DPLC_INSTALL=ON"])
    demand(code != 0 and "exclude each other" in re.sub(r"\s+", " ", said), said)


# Stands for git, cmake and cpack: files with the names and places of theirs, in no time.
STAND_IN = """#!/bin/sh
case "$(basename "$0") $*" in
  git*) echo 0 ;;
  cpack*) mkdir -p "$4" && for name in libplc-driver1 libplc-driver-dev libplc-client1 \
      libplc-client-dev plc-tools python3-plc-client plc-gateway; do
      echo new >"$4/${name}_VERSION_amd64.deb"; done; echo new >"$4/plc-driver-doc_VERSION_all.deb" ;;
  *--install*) while [ "$1" != --prefix ]; do shift; done; mkdir -p "$2" && echo new >"$2/file" ;;
esac
"""


def check_packages(_builder, work):
    """In a copy of the scripts, with stand-ins for what builds."""
    project = clean_folder(work) / "project"
    shutil.copytree(ROOT / "scripts", project / "scripts", ignore=shutil.ignore_patterns("__pycache__"))
    shutil.copy(ROOT / "CMakeLists.txt", project)
    (project / "build/release").mkdir(parents=True)
    tools = clean_folder(work / "tools")
    for name, text in (("git", STAND_IN), ("cmake", STAND_IN), ("cpack", STAND_IN), ("setup", "#!/bin/sh\n")):
        file = (project / "scripts" if name == "setup" else tools) / name
        file.write_text(text.replace("VERSION", VERSION), encoding="utf-8")
        file.chmod(0o755)
    output = clean_folder(work / "output")
    own = [f"libplc-driver1_{VERSION}_amd64.deb", f"libplc-driver-dev_{VERSION}_amd64.deb",
           f"libplc-client1_{VERSION}_amd64.deb", f"libplc-client-dev_{VERSION}_amd64.deb",
           f"plc-tools_{VERSION}_amd64.deb", f"python3-plc-client_{VERSION}_amd64.deb",
           f"plc-gateway_{VERSION}_amd64.deb", f"plc-driver-doc_{VERSION}_all.deb",
           f"plc_driver-{VERSION}-linux-amd64.tar.gz"]
    earlier = ["libplc-driver1_0.9.0_amd64.deb", "plc_driver-0.9.0-linux-armhf.tar.gz"]
    (output / "SHA256SUMS.asc").write_text("old\n", encoding="utf-8")
    strange = ["firefox_1.0_amd64.deb", "backup.tar.gz", "libplc-driver1_0.8.0_amd64.deb", "notes.txt", "stage/kept"]
    for name in (*own, *earlier, *strange):
        (output / name).parent.mkdir(exist_ok=True)
        (output / name).write_text("old\n", encoding="utf-8")
    listed = "".join(f"{'0' * 64}  {name}\n" for name in (*own, *earlier))
    foreign = f"{'1' * 64}  backup.tar.gz\n"
    (output / "SHA256SUMS").write_text(listed + foreign, encoding="utf-8")
    settings = {**os.environ, "PATH": f"{tools}:{os.environ['PATH']}"}
    run([project / "scripts/package", "--only", "amd64", "output"], cwd=work, env=settings)
    demand(installed_files(output) == sorted([*own, *strange, "SHA256SUMS"]), f"there are: {installed_files(output)}")
    for name in strange:
        demand((output / name).read_text(encoding="utf-8") == "old\n", f"{name} is another file now")
    sums = (output / "SHA256SUMS").read_text(encoding="utf-8").split("\n")
    demand(sums[0] + "\n" == foreign and [line[66:] for line in sums[1:-1]] == own, f"the list: {sums}")
    demand(not any(line.startswith("0" * 64) for line in sums), f"sums of old files: {sums}")
    check_signature(project, work, settings)


def check_signature(project, work, settings):
    """Signed with a key of this test, which nobody else has."""
    with tempfile.TemporaryDirectory(prefix="plc_gpg_") as home:  # gpg's sockets want a short path
        settings = {**settings, "GNUPGHOME": home}
        gpg = ["gpg", "--batch", "--quiet", "--passphrase", "", "--pinentry-mode", "loopback"]
        run([*gpg, "--quick-generate-key", "release@example.invalid", "ed25519", "sign", "never"], env=settings)
        try:
            package = [project / "scripts/package", "--only", "amd64", "--sign"]
            for key, folder, message in (("nobody@example.invalid", "signed", "gpg has no secret key"),
                                         ("release@example.invalid", "output", "SHA256SUMS names other files too")):
                code, said = attempt([*package, key, folder], cwd=work, env=settings)
                demand(code == 1 and message in said, f"{key} in {folder}: exit code {code}\n{said}")
            signed = work / "signed"
            run([*package, "release@example.invalid", signed], cwd=work, env=settings)
            verify = [*gpg, "--verify", "SHA256SUMS.asc", "SHA256SUMS"]
            run(verify, cwd=signed, env=settings)
            run(["sha256sum", "--check", "--strict", "SHA256SUMS"], cwd=signed)
            with (signed / "SHA256SUMS").open("a", encoding="utf-8") as sums:
                sums.write(f"{'2' * 64}  more.deb\n")
            demand(attempt(verify, cwd=signed, env=settings)[0] != 0, "a changed list is taken for the signed one")
        finally:
            attempt(["gpgconf", "--kill", "all"], env=settings)


def check_scripts(_builder, work):
    """In a copy of scripts/ alone, where a script that did anything would fail or leave something."""
    clean_folder(work)
    shutil.copytree(ROOT / "scripts", work / "scripts", ignore=shutil.ignore_patterns("__pycache__"))
    before = installed_files(work)
    problems = []
    for script in sorted((ROOT / "scripts").iterdir()):
        if not os.access(script, os.X_OK) or script.is_dir():
            continue
        for word in ("--help", "-h"):
            code, said = attempt([work / "scripts" / script.name, word], cwd=work)
            if code != 0 or f"scripts/{script.name}" not in said:
                problems.append(f"scripts/{script.name} {word}: exit code {code}\n{said[-300:]}")
        code, said = attempt([work / "scripts" / script.name, "--no-such-option"], cwd=work)
        if code != 2:
            problems.append(f"scripts/{script.name} --no-such-option: exit code {code}, not 2\n{said[-300:]}")
    after = [name for name in installed_files(work) if "__pycache__" not in name]
    if after != before:
        problems.append(f"left behind: {sorted(set(after) - set(before))}")
    demand(not problems, "\n".join(problems))


CHECKS = {"alone": check_alone, "subdirectory": check_subdirectory, "fetch": check_fetch, "package": check_package,
          "client": check_client, "flags": check_flags, "options": check_options, "musl": check_musl,
          "packages": check_packages, "scripts": check_scripts}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("check", choices=CHECKS)
    parser.add_argument("--work", required=True, type=pathlib.Path)
    parser.add_argument("--sim", required=True)
    parser.add_argument("--cmake", default="cmake")
    parser.add_argument("--toolchain")
    options = parser.parse_args()
    try:
        CHECKS[options.check](Builder(options), options.work.resolve())
    except Failure as failure:
        print(failure)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
