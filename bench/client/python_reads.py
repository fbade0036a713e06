"""Times reads of variables by name from Python against the driver's own calls with a plan made by hand.

python_reads.py BUILD   BUILD: the folder of a release build with PLC_BUILD_BENCH and PLC_BUILD_PYTHON

Both share one process and one processor, each with a copy of the guarded build, a connection and a peer of its own, and
take turns in short blocks; the driver's calls are made by a compiled loop. A round counts as the first quartile of its
blocks. Prints one line per read: name, microseconds of both, and the median ratio of the rounds with its quartiles.
"""
import ctypes
import os
import pathlib
import subprocess
import sys
import tempfile
import time

WORDS = 100
ROUNDS, BLOCKS, READS, WARM_UP = 31, 20, 16, 500
TAG_FILE = "PLC7F000001_0.csv"


class Peer:
    """Answers one connection."""

    def __init__(self, build):
        self.process = subprocess.Popen([build / "bench" / "bench_peer"], stdout=subprocess.PIPE, text=True)
        self.port = int(self.process.stdout.readline().rsplit(":", 1)[1])

    def close(self):
        self.process.wait(10)
        self.process.stdout.close()


def part_of(values, part):
    return sorted(values)[round(part * (len(values) - 1))]


def time_us(read):
    start = time.perf_counter()
    read(READS)
    return 1e6 * (time.perf_counter() - start) / READS


def measure(output, name, direct, by_name):
    direct(WARM_UP)
    by_name(WARM_UP)
    times, ratios = ([], []), []
    for _ in range(ROUNDS):
        blocks = [(time_us(direct), time_us(by_name)) for _ in range(BLOCKS)]
        for kept, values in zip(times, zip(*blocks)):
            kept.append(part_of(values, 0.25))
        ratios.append(times[1][-1] / times[0][-1])
    print(f"{name:20} driver {part_of(times[0], 0.5):7.2f} us  python {part_of(times[1], 0.5):7.2f} us  "
          f"ratio {part_of(ratios, 0.5):.3f} ({part_of(ratios, 0.25):.3f} to {part_of(ratios, 0.75):.3f})",
          file=output, flush=True)


def measure_all(output, build, plc_client):
    direct_peer, named_peer = Peer(build), Peer(build)
    library = ctypes.CDLL(str(build / "bench" / "libdirect_reads.so"))
    library.direct_open(os.fsencode(build / "src" / "guarded" / "libplc_driver.so.1"), direct_peer.port)
    names = [f"Register_{number:03}" for number in range(WORDS)]
    with plc_client.Controller("127.0.0.1", port=named_peer.port, tags=TAG_FILE) as controller:

        def read_word(count):
            for _ in range(count):
                assert controller.read(names[0]).ok

        def read_words(count):
            for _ in range(count):
                assert len(controller.read(names)) == WORDS

        assert all(reading.ok for reading in controller.read(names))
        measure(output, "one_word", library.direct_read_word, read_word)
        measure(output, "100_words", library.direct_read_words, read_words)
    library.direct_close()
    direct_peer.close()
    named_peer.close()


def main(arguments):
    if len(arguments) != 1:
        print(__doc__.splitlines()[2], file=sys.stderr)
        return 2
    build = pathlib.Path(arguments[0]).resolve()
    sys.path.insert(0, str(build / "python"))
    import plc_client  # pylint: disable=import-outside-toplevel
    # The driver prints its lines: they go nowhere.
    output = os.fdopen(os.dup(1), "w")
    os.dup2(os.open(os.devnull, os.O_WRONLY), 1)
    os.sched_setaffinity(0, {max(os.sched_getaffinity(0))})
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        with open(TAG_FILE, "w", encoding="utf-8") as tags:
            tags.writelines(f"Register_{number:03},INT,,,,,,{number},1,0,0,,DM\n" for number in range(WORDS))
        measure_all(output, build, plc_client)
        os.chdir("/")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
