"""Variables of a Keyence KV-8000 controller by name: connect, read, write.

    import plc_client

    with plc_client.Controller("192.168.0.10", tags="tags/") as press:
        print(press.read("Motor.Speed").value)
        press.write("Motor.Speed", 1500, verify=True)

The tag files declare the variables: give a folder of them, or the files themselves. A name is written as it is
declared, with its subscripts, and after its program if it is a local variable:

    Motor.Speed       a variable, or a member of a structure
    Table             an array, all of it; Table[3] one element, Table[0..4] five, Grid[1,0..2] three of the second row
    Main/Step         the variable Step of the program Main

Values by declared type:

    BOOL                                       bool
    SINT INT DINT LINT USINT UINT UDINT ULINT  int
    BYTE WORD DWORD LWORD                      int, the bits as a number without a sign
    REAL LREAL                                 float
    STRING                                     str, UTF-8; other bytes as surrogates (errors="surrogateescape")
    STIME DATE TIME_OF_DAY DATE_AND_TIME       no value: the driver stores them up to their first zero byte
    arrays of these                            lists, nested by dimension, the last subscript innermost;
                                               numpy arrays with as_numpy=True

Mistakes of the program are exceptions, raised before anything is sent: UnknownVariable, TypeMismatch, OutOfRange, all
of them plc_client.Error. The result reports what goes wrong in the world: reading.ok is False, reading.value is None
and reading.error describes what happened. A value that was not read is never replaced by an old value or zero.

Controller     one controller
Simulator      a simulated controller for tests, on a free port
csv_cell       a text as a cell of a CSV file
what they give:     Reading, WriteResult, Declaration, Tags, State
what they raise:    Error; UnknownVariable, TypeMismatch, OutOfRange, ConnectionFailed are Errors too

Threads may share a Controller: one at a time uses it, and others run Python in the meantime. With asyncio, call it in a
thread: reading = await asyncio.to_thread(press.read, "Motor.Speed").
"""
from ._core import __version__
from ._controller import Controller, Tags
from ._csv import csv_cell
from ._errors import ConnectionFailed, Error, OutOfRange, TypeMismatch, UnknownVariable
from ._records import Declaration, Reading, State, WriteResult
from ._simulator import Simulator

__all__ = ["ConnectionFailed", "Controller", "Declaration", "Error", "OutOfRange", "Reading", "Simulator", "State",
           "Tags", "TypeMismatch", "UnknownVariable", "WriteResult", "__version__", "csv_cell"]
