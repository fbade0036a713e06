"""What all rules have in common: their register, and how long things may take.

A rule is a generator over one edge node. It yields, for each place where it applies, the number of the packet, whether
all is well there, and a sentence that says what is not.
"""
RULES = {}

# Sent before something was known here, though it arrives behind it.
IN_FLIGHT_MS = 1000
# Until an answer must have come: a birth, a death, the result of a command.
ANSWER_LIMIT_MS = 10000
# Clocks of one machine agree; no time zone differs from UTC by less than a quarter of an hour, but for UTC's own.
CLOCK_MS = 600000
AHEAD_MS = 2000
# A time before it is none in milliseconds since 1970: September 2001.
FIRST_MS = 10 ** 12


def rule(function):
    RULES[function.__name__] = function
    return function


def undisturbed(node, connection, start, length_ms=ANSWER_LIMIT_MS):
    """Whether the connection lived that long from `start`, with nothing done to broker or gateway meanwhile."""
    end = start + length_ms
    if node.last_t < end or connection.closed is not None and connection.closed.t < end:
        return False
    frozen = False
    for note in node.notes:
        if note["t"] <= start:
            frozen = note["event"] == "frozen" if note["event"] in ("frozen", "thawed") else frozen
        elif note["t"] < end and note["event"] in ("frozen", "down", "killed", "stopping", "device-lost"):
            return False
    return not frozen


def device_down(node, t):
    """Whether the controller did not answer then, or until shortly before, as far as the record's notes tell."""
    down_until = None
    for note in node.notes_of("device-lost", "device-back"):
        if note["t"] > t:
            break
        down_until = None if note["event"] == "device-lost" else note["t"] + ANSWER_LIMIT_MS
        if note["event"] == "device-lost":
            down_until = float("inf")
    return down_until is not None and t < down_until


def properties_of(message):
    return [(metric, metric.properties) for metric in message.metrics() if metric.properties is not None]
