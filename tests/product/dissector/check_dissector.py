#!/usr/bin/env python3
"""Runs tshark with the dissector and compares what it says with committed text, or with what must always hold.

check_dissector.py golden SAMPLE    the sample's dissection equals golden/SAMPLE.txt: lines in one pass, trees in two
check_dissector.py update           writes the golden texts anew from what tshark says now
check_dissector.py samples          the committed captures are what make_samples.py writes
check_dissector.py experts          every expert item fires in some golden text
check_dissector.py filters          every documented display filter is known and finds frames in the samples
check_dissector.py binding          Decode As and the heuristic find the protocol without the preference
check_dissector.py hostile          frames cut at every byte and frames with changed bytes raise no Lua error
check_dissector.py heads            refusals and answers to other requests have no value, unless the preference allows
check_dissector.py passes           two passes show the same with and without a filter, and miss no reply that is there
check_dissector.py snapped          a reply that the capture has in part only moves no other reply to another request
check_dissector.py startup          tshark that loads every file of a plugin folder by itself says nothing of Lua
"""

import difflib
import os
import pathlib
import random
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import unicodedata

TESTS = pathlib.Path(__file__).resolve().parent
ROOT = TESTS.parent.parent.parent
DISSECTOR = ROOT / "dissector" / "plc_kv.lua"
SAMPLES = ROOT / "dissector" / "samples"
GOLDEN = TESTS / "golden"
DOCUMENT = ROOT / "docs" / "dissector.md"
TITLE = "KV Variable Access"
PORT = ["-o", "plckv.port:9500"]
RUN_LIMIT_S = 120
CHANGED_FRAMES = 400
CUT_EXCHANGES = 2  # of each subject

sys.path.insert(0, str(DISSECTOR.parent))
sys.dont_write_bytecode = True
import make_samples  # noqa: E402  (found through the line above)


class Failure(Exception):
    """What is wrong, as text."""


def tshark(arguments, script=DISSECTOR, plugins=None):
    """tshark's output, with no user's configuration; fails on a failing run and on any word of Lua trouble."""
    with tempfile.TemporaryDirectory() as home:
        if plugins:
            shutil.copytree(plugins, pathlib.Path(home) / ".local/lib/wireshark/plugins", dirs_exist_ok=True)
        environment = {"PATH": os.environ["PATH"], "HOME": home, "LC_ALL": "C.UTF-8", "TZ": "UTC"}
        command = [os.environ.get("TSHARK", "tshark")] + arguments + ["-n"]
        if script:
            command += ["-X", "lua_script:" + str(script)]
        done = subprocess.run(command, env=environment, text=True, stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=RUN_LIMIT_S, check=False)
    if done.returncode != 0:
        raise Failure("tshark %s: exit code %d\n%s" % (" ".join(arguments), done.returncode, done.stderr))
    # The list of all fields names Lua's own error item.
    for text in [done.stderr] if arguments[0] == "-G" else [done.stdout, done.stderr]:
        if re.search(r"lua error|lua:|\.lua:\d", text, re.IGNORECASE):
            raise Failure("tshark %s: Lua trouble\n%s" % (" ".join(arguments), text[:2000]))
    return done.stdout


def dissection(path, display_filter=("-Y", "plckv")):
    """The lines of our protocol alone, frame by frame; the other layers differ between versions of tshark."""
    arguments = ["-2", "-r", str(path), "-V", "-O", "plckv", *display_filter] + PORT
    shown, inside = [], False
    for line in tshark(arguments).split("\n"):
        frame = re.match(r"Frame (\d+):", line)
        if frame:
            shown.append("Frame %s" % frame.group(1))
        inside = line.startswith(TITLE) or (inside and line.startswith("    "))
        if inside:
            shown.append("  " + line)
    return "\n".join(shown) + "\n"


def whole_text(path):
    summary = tshark(["-r", str(path), "-Y", "plckv", "-T", "fields", "-e", "frame.number", "-e", "_ws.col.Info",
                      "-e", "_ws.expert.message"] + PORT)
    tree = dissection(path)
    if not summary.strip() or TITLE not in tree:
        raise Failure("%s: nothing was dissected" % path.name)
    return "== in one pass\n" + summary + "== in two passes\n" + tree


def hidden_in(text):
    """What a terminal would obey or hide."""
    return sorted({hex(ord(c)) for c in text if c in "\u2800\u3000" or (c not in "\n\t" and unicodedata.category(c) in
                   ("Cc", "Cf", "Cs", "Cn", "Co", "Zl", "Zp"))})


def check_golden(name):
    wanted = (GOLDEN / (name + ".txt")).read_text(encoding="utf-8")
    found = whole_text(SAMPLES / (name + ".pcap"))
    if hidden_in(found):
        raise Failure("the output holds %s" % hidden_in(found))
    if found != wanted:
        difference = difflib.unified_diff(wanted.split("\n"), found.split("\n"), "golden", "found", lineterm="")
        raise Failure("\n".join(list(difference)[:80]))


def update_golden():
    GOLDEN.mkdir(exist_ok=True)
    for path in sorted(SAMPLES.glob("*.pcap")):
        (GOLDEN / (path.stem + ".txt")).write_text(whole_text(path), encoding="utf-8")


def check_samples():
    with tempfile.TemporaryDirectory() as folder:
        subprocess.run([sys.executable, str(DISSECTOR.parent / "make_samples.py"), folder], check=True)
        made = {path.name: path.read_bytes() for path in pathlib.Path(folder).glob("*.pcap")}
    kept = {path.name: path.read_bytes() for path in SAMPLES.glob("*.pcap")}
    golden = {path.stem + ".pcap" for path in GOLDEN.glob("*.txt")}
    for name in sorted(set(made) | set(kept) | golden):
        if made.get(name) != kept.get(name):
            raise Failure("%s is not what make_samples.py writes" % name)
        if name not in golden or name not in kept:
            raise Failure("%s: a capture and a golden text belong together" % name)


def shown_fields(names):
    """Those of the fields that some frame of some sample has, in one pass or in two: a frame that goes on shows in the
    first alone, a missing reply in the second alone."""
    names, shown = sorted(names), set()
    with tempfile.TemporaryDirectory() as folder:
        merged = pathlib.Path(folder) / "all.pcap"
        write_merged(merged)
        columns = [word for name in names for word in ("-e", name)]
        for passes in ([], ["-2"]):
            arguments = passes + ["-r", str(merged), "-Y", "plckv", "-T", "fields"]
            for line in tshark(arguments + columns + PORT).split("\n"):
                shown |= {name for name, value in zip(names, line.split("\t")) if value}
    return shown


def check_experts():
    source = (DISSECTOR.parent / "plc_kv" / "fields.lua").read_text(encoding="utf-8")
    wanted = {"plckv.expert." + name for name in re.findall(r'expert_of\("(\w+)"', source)}
    documented = set(re.findall(r"`(plckv\.expert\.\w+)`", DOCUMENT.read_text(encoding="utf-8")))
    if not wanted or wanted != documented:
        raise Failure("expert items of the code and of the document differ: %s" % sorted(wanted ^ documented))
    silent = wanted - shown_fields(wanted)
    if silent:
        raise Failure("no sample raises %s" % sorted(silent))


def check_filters():
    text = DOCUMENT.read_text(encoding="utf-8")
    fields = set(re.findall(r"^\| `(plckv[\w.]*)` \|", text, re.MULTILINE))
    known = set(re.findall(r"\t(plckv\.[\w.]+)\t", tshark(["-G", "fields"]))) | {"plckv"}
    if known != fields:
        raise Failure("fields of the dissector and of the document differ: %s" % sorted(known ^ fields))
    unseen = fields - shown_fields(fields)
    if unseen:
        raise Failure("no sample has %s" % sorted(unseen))
    filters = [found.replace("\\|", "|") for found in re.findall(r"^\| `(.*plckv.*)` \| shows", text, re.MULTILINE)]
    if not filters:
        raise Failure("the document names no filters")
    for display_filter, frames in zip(filters, frames_found(filters)):
        if not frames:
            raise Failure("the filter '%s' finds nothing in any sample" % display_filter)


def frames_found(filters):
    """How many frames of the samples each filter finds, in one start of tshark: its statistics count for many."""
    if "," in "".join(filters):
        raise Failure("tshark separates filters by commas; one of these holds some: %s" % filters)
    with tempfile.TemporaryDirectory() as folder:
        merged = pathlib.Path(folder) / "all.pcap"
        write_merged(merged)
        table = tshark(["-q", "-r", str(merged), "-z", "io,stat,0," + ",".join(filters)] + PORT)
    rows = re.findall(r"^\|.* <> [^|]*\|(.*)\|$", table, re.MULTILINE)
    numbers = [int(word) for row in rows for word in row.split("|")]
    if len(rows) != 1 or len(numbers) != 2 * len(filters):  # frames and bytes
        raise Failure("tshark's table is another one now:\n" + table)
    return numbers[::2]


def write_merged(path):
    """All samples behind each other: their packets in one file."""
    data = b""
    for sample in sorted(SAMPLES.glob("*.pcap")):
        whole = sample.read_bytes()
        data = data or whole[:24]
        data += whole[24:]
    path.write_bytes(data)


def check_binding():
    session = str(SAMPLES / "session.pcap")
    wanted = tshark(["-r", session, "-Y", "plckv", "-T", "fields", "-e", "_ws.col.Info"] + PORT)
    if wanted.count("\n") < 10:
        raise Failure("the preference finds too little:\n" + wanted)
    ways = {"heuristic": [], "Decode As": ["-d", "tcp.port==9500,plckv", "--disable-heuristic", "plckv_tcp"]}
    for way, arguments in ways.items():
        found = tshark(["-r", session, "-Y", "plckv", "-T", "fields", "-e", "_ws.col.Info"] + arguments)
        if found != wanted:
            raise Failure("%s finds:\n%s" % (way, found))
    if tshark(["-r", session, "-Y", "plckv", "--disable-heuristic", "plckv_tcp"]).strip():
        raise Failure("the protocol is found although nothing binds it")


def with_true_length(frame):
    length = max(len(frame) - 10, 0)
    return (struct.pack(">II", length, length ^ 0xFFFFFFFF) + frame[8:])[:len(frame)]


def hostile_exchanges(vectors):
    """Exchanges with their reply, then their request, cut at every byte, under the old length and under a true one;
    then seeded changes of single bytes."""
    subjects = [[exchange for vector in vectors[name][:6] for exchange in make_samples.frames_of(vector) if exchange[1]]
                for name in ("write_words", "write_bits", "write_strings", "batch", "directory", "value_reply")]
    for request, reply in [exchange for subject in subjects for exchange in subject[:CUT_EXCHANGES]]:
        for count in range(len(reply)):
            yield request, reply[:count]
            yield request, with_true_length(reply[:count])
        for count in range(len(request)):
            yield request[:count], reply
            yield with_true_length(request[:count]), reply
    exchanges = [exchange for subject in subjects for exchange in subject]
    chance = random.Random(1)
    for _ in range(CHANGED_FRAMES):
        request, reply = map(bytearray, chance.choice(exchanges))
        for frame in (request, reply):
            for _ in range(chance.randrange(4)):
                frame[chance.randrange(8, len(frame))] = chance.choice((0, 1, 2, 127, 128, 255))
        yield bytes(request), bytes(reply)


def check_hostile():
    vectors = make_samples.load_vectors()
    capture, count = make_samples.Capture(), 0
    for request, reply in hostile_exchanges(vectors):
        capture.connect()
        for _ in range(2):
            for from_client, frame in ((True, request), (False, reply)):
                if frame:
                    capture.segment(from_client, frame)
        capture.close()
        count += 1
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder) / "hostile.pcap"
        capture.write(path)
        for passes in ([], ["-2"]):
            # No filter: a frame that raises an error at once is none of ours any more.
            found = tshark(["-r", str(path), "-V", "-O", "plckv"] + PORT + passes)
            if found.count(TITLE) < count:
                raise Failure("%d frames dissected of %d exchanges" % (found.count(TITLE), count))
            if "Malformed Packet" in found:
                raise Failure("Wireshark gave a frame up:\n" + found[found.index("Malformed Packet") - 1000:][:1200])


def check_heads():
    refusals = ["-r", str(SAMPLES / "refusals.pcap")]
    columns = refusals + ["-Y", "plckv.reply && tcp.stream in {0,3,6,8,9,14}", "-T", "fields", "-E", "separator=|"]
    columns += ["-e", "_ws.col.Info", "-e", "plckv.status", "-e", "plckv.value", "-e", "plckv.handle"]
    start = ["Directory start reply|0x0000||", "Directory reply: MAIN|0x0000||"]
    good = ["Resolve reply: 1 handle|0x0000||060a0b0c0d", "Read reply: D = 4660|0x0000|1234|"]
    resolved, read = good
    wanted = {
        "TRUE": start + good + [
            resolved, "Read reply: refused, status 1300|0x1300||",
            "Resolve reply: refused, status 0004|0x0004||", "Read reply: 06:0A0B0C0D = 4660|0x0000|1234|",
            resolved, "Read reply: answers another request|0x0000||",
            resolved, "Read reply: answers another request|||",
            resolved, "Write reply: refused, status 0013|0x0013||"],
        "FALSE": start + good + [
            resolved, read.replace("0x0000", "0x1300"), resolved.replace("0x0000", "0x0004"), read, resolved, read,
            resolved, read.replace("0x0000", ""), resolved, "Write reply|0x0013||"]}
    for judge, lines in wanted.items():
        found = tshark(columns + PORT + ["-o", "plckv.judge_heads:" + judge]).rstrip("\n").split("\n")
        if found != lines:
            raise Failure("judge_heads %s:\n%s" % (judge, "\n".join(difflib.unified_diff(lines, found, lineterm=""))))
    judged = ["-Y", "plckv.expert.refused || plckv.expert.other_request", "-o", "plckv.judge_heads:FALSE"]
    left = tshark(refusals + judged + PORT)
    if left:
        raise Failure("heads are judged although the preference says no:\n" + left)


def write_reused_ports(path):
    """Two connections between the same ports. The second gives the handle to another name; each leaves a read without
    its reply, under the number that the other one's has."""
    capture = make_samples.Capture()
    directory = make_samples.named(make_samples.load_vectors(), "the directory frames carry 0 and 1")
    handle = b"\0\0\1\0\1" + bytes([0, 16, 0, 0, 6, 1, 2, 0, 0]) + bytes(15)
    value = b"\0\0\1\0\0\0" + bytes([0, 6, 0, 1, 1, 2, 0, 0])
    for first_byte, name in ((1000, b"A"), (100000, b"B")):
        capture.connect(first_byte)
        block = b"\0\1\0\0\0\1\0\1\0" + name
        make_samples.play(capture, directory + [
            (make_samples.with_head(0, 0x0C28, block), make_samples.with_head(0, 0x0C28, handle)),
            (make_samples.with_head(1, 0x1E09, value), make_samples.with_head(1, 0x1E09, b"\0\0\0" + name)),
            (make_samples.with_head(2, 0x1E09, value), b"")])
        capture.close()
        capture.port -= 1
    capture.write(path)


def check_passes():
    with tempfile.TemporaryDirectory() as folder:
        merged, reused = pathlib.Path(folder) / "all.pcap", pathlib.Path(folder) / "reused.pcap"
        write_merged(merged)
        write_reused_ports(reused)
        for path in (merged, reused):
            empty = re.compile(r"^Frame \d+\n(?!  )", re.MULTILINE)  # of other protocols, or begun here
            wanted, found = (empty.sub("", text).split("\n") for text in (dissection(path), dissection(path, ())))
            if found != wanted:
                difference = difflib.unified_diff(wanted, found, "with a filter", "without", lineterm="", n=8)
                raise Failure("\n".join(list(difference)[:80]))
        columns = ["-r", str(reused), "-T", "fields", "-E", "separator=|", "-e", "_ws.col.Info"]
        columns += ["-e", "plckv.expert.no_reply"]
        lines = [line for line in tshark(["-2"] + columns + PORT).split("\n") if line.startswith("Read")]
        wanted = ["Read: A|", "Read reply: A = 65|", "Read: A|1",
                  "Read: B|", "Read reply: B = 66|", "Read: B|1"]
        if lines != wanted:
            raise Failure("two passes over reused ports:\n" + "\n".join(lines))
    session = tshark(["-2", "-r", str(SAMPLES / "session.pcap"), "-V"] + PORT)
    if session.count("[Reply in: ") != 8 or "No reply" in session:
        raise Failure("the session's replies are missed:\n" + session)


def write_snapped(path, limit):
    """The session as recorded with a limit on the bytes of a packet."""
    whole = (SAMPLES / "session.pcap").read_bytes()
    out, at = whole[:24], 24
    while at < len(whole):
        seconds, micros, kept, size = struct.unpack_from("<IIII", whole, at)
        out += struct.pack("<IIII", seconds, micros, min(kept, limit), size) + whole[at + 16:at + 16 + min(kept, limit)]
        at += 16 + kept
    path.write_bytes(out)


def check_snapped():
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder) / "snapped.pcap"
        write_snapped(path, 54 + 28)
        columns = ["-T", "fields", "-E", "separator=|", "-e", "frame.number", "-e", "_ws.col.Info"]
        columns += ["-e", "plckv.reply_in", "-e", "plckv.request_in", "-e", "plckv.expert.no_reply"]
        found = tshark(["-2", "-r", str(path), "-Y", "plckv"] + columns + PORT).rstrip("\n").split("\n")
    wanted = ["4|Directory start|5||", "5|Directory start reply||4|", "6|Directory|7||", "7|Part of a reply|||",
              "8|Resolve: D|9||", "9|Part of a reply|||", "10|Read: 06:0A0B0C0D|11||",
              "11|Read reply: 06:0A0B0C0D = 4660||10|", "12|Part of a request|||", "13|Part of a reply|||",
              "14|Write: 06:0A0B0C0D = 1450709556|15||", "15|Write reply||14|", "16|Resolve: B|17||",
              "17|Part of a reply|||", "18|Set: ..0C35|19||", "19|Set reply||18|"]
    if found != wanted:
        raise Failure("\n".join(difflib.unified_diff(wanted, found, "wanted", "found", lineterm="")))


def check_startup():
    session = str(SAMPLES / "session.pcap")
    with tempfile.TemporaryDirectory() as folder:
        plugins = pathlib.Path(folder) / "plugins"
        shutil.copytree(DISSECTOR.parent / "plc_kv", plugins / "plc_kv")
        shutil.copy(DISSECTOR, plugins)
        found = tshark(["-r", session, "-Y", "plckv"], script=None, plugins=plugins)
    if not found.strip():
        raise Failure("nothing is dissected from a plugin folder")


CHECKS = {"golden": check_golden, "update": update_golden, "samples": check_samples, "experts": check_experts,
          "filters": check_filters, "binding": check_binding, "hostile": check_hostile, "heads": check_heads,
          "passes": check_passes, "snapped": check_snapped, "startup": check_startup}


def main():
    if len(sys.argv) < 2 or sys.argv[1] not in CHECKS or len(sys.argv) != (3 if sys.argv[1] == "golden" else 2):
        print(__doc__, file=sys.stderr)
        return 2
    try:
        CHECKS[sys.argv[1]](*sys.argv[2:])
    except Failure as failure:
        print(failure)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
