"""Makes a wheel of plc_client for pip: CMake builds the package with its driver and plc-sim, and this packs it.

It needs what the build needs, and no Python package.
"""
from __future__ import annotations

import base64
import csv
import hashlib
import io
import os
import pathlib
import re
import subprocess
import sys
import sysconfig
import zipfile
from typing import Dict, List, Optional, Tuple

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
VERSION = re.search(r"^project\(plc_driver VERSION ([\d.]+)", (ROOT / "CMakeLists.txt").read_text(encoding="utf-8"),
                    re.M)[1]
PYTHON = f"cp{sys.version_info.major}{sys.version_info.minor}"
TAG = f"{PYTHON}-{PYTHON}-{re.sub(r'[-.]', '_', sysconfig.get_platform())}"
INFO = f"plc_client-{VERSION}.dist-info"
METADATA = f"""Metadata-Version: 2.1
Name: plc-client
Version: {VERSION}
Summary: Variables of a Keyence KV-8000 controller by name
Requires-Python: >=3.9
Classifier: Operating System :: POSIX :: Linux
Classifier: Typing :: Typed
"""
WHEEL = f"""Wheel-Version: 1.0
Generator: checkout_wheel
Root-Is-Purelib: false
Tag: {TAG}
"""


def built_package() -> pathlib.Path:
    """The folder that CMake has put the package together in, for the interpreter that runs this."""
    build = ROOT / "build" / f"wheel-{TAG}"
    options = ["-DCMAKE_BUILD_TYPE=Release", "-DPLC_BUILD_TOOLS=ON", "-DPLC_BUILD_PYTHON=ON", "-DPLC_BUILD_TESTS=OFF",
               "-DPLC_INSTALL=OFF", "-DPLC_MERGED_SOURCES=ON", f"-DPLC_PYTHON_PROGRAM={sys.executable}"]
    subprocess.run(["cmake", "-S", ROOT, "-B", build, *options], check=True)
    jobs = str(os.cpu_count() or 1)
    subprocess.run(["cmake", "--build", build, "--parallel", jobs, "--target", "plc_python_package"], check=True)
    return build / "python"


def packed_files(folder: pathlib.Path) -> List[Tuple[str, pathlib.Path]]:
    """Names in the wheel, and the files; what links point to."""
    files = [(path.relative_to(folder).as_posix(), path) for path in sorted(folder.rglob("*")) if path.is_file()]
    return [(name, path) for name, path in files if "__pycache__" not in name]


def add_file(wheel: zipfile.ZipFile, name: str, content: bytes, is_program: bool) -> Tuple[str, str, int]:
    """Adds a file, the same bytes whenever it is done; its line of RECORD."""
    entry = zipfile.ZipInfo(name, (1980, 1, 1, 0, 0, 0))
    entry.external_attr = (0o100755 if is_program else 0o100644) << 16
    entry.compress_type = zipfile.ZIP_DEFLATED
    wheel.writestr(entry, content)
    digest = base64.urlsafe_b64encode(hashlib.sha256(content).digest()).rstrip(b"=").decode()
    return name, f"sha256={digest}", len(content)


def info_files() -> Dict[str, bytes]:
    """What a wheel says of itself."""
    return {"METADATA": METADATA.encode(), "WHEEL": WHEEL.encode(), "LICENSE": (ROOT / "LICENSE").read_bytes()}


def prepare_metadata_for_build_wheel(metadata_directory: str, config_settings: Optional[Dict[str, str]] = None) -> str:
    """What pip asks for before it builds anything."""
    folder = pathlib.Path(metadata_directory) / INFO
    folder.mkdir()
    for name, content in info_files().items():
        (folder / name).write_bytes(content)
    return INFO


def build_wheel(wheel_directory: str, config_settings: Optional[Dict[str, str]] = None,
                metadata_directory: Optional[str] = None) -> str:
    """What pip calls: writes the wheel into its folder and returns its name."""
    name = f"plc_client-{VERSION}-{TAG}.whl"
    with zipfile.ZipFile(os.path.join(wheel_directory, name), "w") as wheel:
        record: List[Tuple[str, str, object]] = [
            add_file(wheel, inside, path.read_bytes(), os.access(path, os.X_OK))
            for inside, path in packed_files(built_package())]
        for inside, content in info_files().items():
            record.append(add_file(wheel, f"{INFO}/{inside}", content, False))
        record.append((f"{INFO}/RECORD", "", ""))
        lines = io.StringIO()
        csv.writer(lines, lineterminator="\n").writerows(record)
        add_file(wheel, f"{INFO}/RECORD", lines.getvalue().encode(), False)
    return name


def build_sdist(sdist_directory: str, config_settings: Optional[Dict[str, str]] = None) -> str:
    """pip asks for it when it wants sources alone; they come as a checkout."""
    raise NotImplementedError("plc_client is installed from a checkout: pip install .")
