"""Where the driver and the simulator lie that belong to this package."""
from __future__ import annotations

import os
import shutil
import sysconfig
from typing import List, Optional

from ._errors import Error

# A package that brings them has them in a folder of its own; a system's has them where the system has such things.
_PROGRAMS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "programs")
_PREFIX = os.path.normpath(os.path.join(_PROGRAMS, "..", "..", "..", "..", ".."))
_SYSTEM = str(sysconfig.get_config_var("MULTIARCH"))
_LIBRARY = "libplc_driver.so.1"


def _first_of(paths: List[str]) -> Optional[str]:
    return next((path for path in paths if os.path.exists(path)), None)


def driver_path(choice: str) -> str:
    """The library of a choice: for "guarded" and "contract" the one that belongs to this package, if there is one."""
    folders = {"guarded": ("guarded", os.path.join("plc_driver", "guarded")), "contract": ("", "")}
    if choice not in folders:
        return choice
    own, systems = folders[choice]
    found = _first_of([os.path.join(_PROGRAMS, own, _LIBRARY), os.path.join(_PREFIX, "lib", _SYSTEM, systems, _LIBRARY),
                       os.path.join(_PREFIX, "lib", systems, _LIBRARY)])
    return found or choice


def simulator_path() -> str:
    """The plc-sim that belongs to this package, else the one on the search path. Raises Error when there is none."""
    own = [os.path.join(_PROGRAMS, "plc-sim"), os.path.join(_PREFIX, "bin", "plc-sim")]
    found = _first_of(own) or shutil.which("plc-sim")
    if found is None:
        raise Error("plc-sim is neither in this package nor on the PATH: install the package plc-tools, "
                    "or name the program, Simulator(..., program=PATH)")
    return found
