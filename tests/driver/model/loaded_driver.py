"""The driver under test: loads the shared library, lays out the host's records and captures what it prints."""

import _ctypes
import ctypes
import mmap
import os
import struct

PAGE = 4096
SETTINGS_AT, REQUEST_AT, VALUE_AT, CONN_AT, RECORDS_BYTES = 64, 160, 256, 352, 512
POINTER_BYTES = ctypes.sizeof(ctypes.c_void_p)
VALUE_POINTER_AT = VALUE_AT + POINTER_BYTES
ELEMENT_BYTES = 20

libc = ctypes.CDLL(None, use_errno=True)


class GuardedRegion:
    """Bytes that end at a page which nobody may touch."""

    def __init__(self, size):
        self.size = size
        self.map = mmap.mmap(-1, size + PAGE)
        self.base = ctypes.addressof(ctypes.c_char.from_buffer(self.map))
        if libc.mprotect(ctypes.c_void_p(self.base + size), ctypes.c_size_t(PAGE), 0) != 0:
            raise OSError(ctypes.get_errno(), "mprotect")

    def place(self, content, pattern):
        """Puts content at the very end, pattern bytes before it. Returns its address."""
        start = self.size - len(content)
        self.map[0:self.size] = pattern * start + content
        return self.base + start

    def read(self):
        return self.map[0:self.size]


class Console:
    """Catches descriptor 1, where the driver prints."""

    def __init__(self):
        self.own = os.fdopen(os.dup(1), "w", buffering=1)
        self.file = os.memfd_create("console")
        os.dup2(self.file, 1)

    def take(self):
        libc.fflush(None)
        size = os.lseek(self.file, 0, os.SEEK_CUR)
        if size == 0:
            return b""
        text = os.pread(self.file, size, 0)
        os.lseek(self.file, 0, os.SEEK_SET)
        os.ftruncate(self.file, 0)
        return text


class LoadedDriver:
    """One load of the library; every load starts with fresh module state."""

    def __init__(self, path):
        self.handle = _ctypes.dlopen(path, os.RTLD_NOW)
        self.functions = {}

    def function(self, name, *argtypes, result=ctypes.c_uint32):
        if name not in self.functions:
            prototype = ctypes.CFUNCTYPE(result, *argtypes)
            self.functions[name] = prototype(_ctypes.dlsym(self.handle, name))
        return self.functions[name]

    def unload(self):
        self.functions = {}
        _ctypes.dlclose(self.handle)


def build_of(path):
    """Which rules a library follows; one that does not say so follows the contract."""
    driver = LoadedDriver(path)
    try:
        text = driver.function("plc_driver_build", result=ctypes.c_char_p)().decode()
    except (AttributeError, OSError):
        text = "contract"
    driver.unload()
    return text.split()[-1]


class HostMemory:
    """The host's records, with a pattern everywhere around them."""

    def __init__(self):
        self.records = (ctypes.c_ubyte * RECORDS_BYTES)()
        self.base = ctypes.addressof(self.records)
        self.data = GuardedRegion(2 * PAGE)
        self.elements = GuardedRegion(PAGE)

    def fill(self, pattern):
        ctypes.memset(self.base, pattern, RECORDS_BYTES)

    def put(self, at, raw):
        ctypes.memmove(self.base + at, raw, len(raw))

    def image(self):
        return ctypes.string_at(self.base, RECORDS_BYTES)

    def address(self, at):
        return ctypes.c_void_p(self.base + at)

    def socket_fd(self):
        return struct.unpack_from("<i", self.records, CONN_AT)[0]

    def set_socket_fd(self, number):
        self.put(CONN_AT, struct.pack("<i", number))


def pack_request(request):
    return struct.pack("<HBBI", request.area, 0xA5, request.reg_type, request.address)


def pack_element(element, value):
    return struct.pack("<HBBIH6sI", element.area, 0x5A, element.reg_type, element.address, element.count, b"hosts!",
                       value)
