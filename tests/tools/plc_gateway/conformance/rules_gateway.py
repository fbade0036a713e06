"""Rules about what the gateway promises beyond the standard: history, fences, quality, its JSON form, and commands."""
import bisect
import json

import mqtt
from rulebook import AHEAD_MS, ANSWER_LIMIT_MS, IN_FLIGHT_MS, properties_of, rule, undisturbed
from session import NAMESPACE, NULL, value_of

COMMAND = "Last Command/"
NO_NUMBERS = ("not a number", "infinity", "minus infinity")
RESULTS = ("done", "refused", "failed", "unknown", "unpublished")
FENCE_LIMIT_MS = 5000
RETURN_MS = 5000  # of the gateway, or to the controller
GOOD = 192
JSON_KEYS = {"value", "quality", "time"}


@rule
def packets_are_whole(node):
    for connection in node.connections:
        for step in connection.steps:
            if step.from_edge:
                fine = not step.problem and step.packet.kind in mqtt.NAMES
                yield step.n, fine, f"the packet cannot be read: {step.problem}"


@rule
def payloads_are_strict(node):
    for connection in node.connections:
        for message in connection.messages() + ([connection.will] if connection.will else []):
            if message.kind:
                yield message.n, not message.findings, f"{message.kind}: {'; '.join(message.findings[:3])}"


@rule
def session_is_clean(node):
    for connection in node.connections:
        if connection.connect:
            packet = connection.connect.packet
            fine = packet.clean and not packet.properties.get(mqtt.SESSION_EXPIRY)
            yield connection.connect.n, fine, "the CONNECT asks for a session that outlives its connection"


@rule
def nothing_is_retained(node):
    for message in node.messages():
        yield message.n, not message.retain, f"{message.topic} is to be retained"


@rule
def sends_no_commands(node):
    for message in node.messages():
        fine = message.kind not in ("NCMD", "DCMD") and not message.topic.startswith(NAMESPACE + "/STATE/")
        yield message.n, fine, f"{message.topic} is a host's to publish"


@rule
def one_device(node):
    devices = sorted({message.device for message in node.messages() if message.device})
    for message in node.messages("DBIRTH"):
        yield message.n, len(devices) == 1, f"the node speaks for {devices}, not for one device"


@rule
def data_only_while_alive(node):
    """Live and historical."""
    for message in node.messages("DDATA", "DDEATH"):
        fine = message.device in message.alive
        yield message.n, fine, f"{message.kind} of a device that is not born, or dead"


@rule
def history_only_behind_births(node):
    for connection in node.connections:
        birth = None
        for message in connection.messages():
            birth = message if message.kind == "NBIRTH" else birth
            for metric in message.metrics():
                if metric.is_historical:
                    fine = message.kind == "DDATA" and message.device in message.alive and birth is not None
                    yield message.n, fine, f"{metric.label()} is history in {message.kind}, before its birth"


@rule
def history_is_older_than_births(node):
    for connection in node.connections:
        start = None
        for message in connection.messages():
            # A device that comes back is born again: what was bad then is told once more, as history.
            if message.kind in ("NBIRTH", "DBIRTH"):
                start = message.payload.timestamp if message.payload else None
            for metric in message.metrics():
                if metric.is_historical and metric.timestamp is not None and start is not None:
                    fine = metric.timestamp <= start + AHEAD_MS
                    yield message.n, fine, f"{metric.label()} is history, and younger than the births"


@rule
def history_is_in_order(node):
    """Per metric, oldest first, between two births of the node."""
    for connection in node.connections:
        last = {}
        for message in connection.messages():
            last = {} if message.kind == "NBIRTH" else last
            for metric, known in zip(message.metrics(), message.known):
                if metric.is_historical and known is not None and metric.timestamp is not None:
                    place = message.device, known.name
                    fine = metric.timestamp >= last.get(place, 0)
                    yield message.n, fine, f"history of '{known.name}' goes back in time"
                    last[place] = metric.timestamp


@rule
def live_never_goes_back(node):
    """Per metric, births included, over all connections: what is older than that is history and marked as such."""
    last = {}
    for message in node.messages("NBIRTH", "DBIRTH", "NDATA", "DDATA"):
        for metric, known in zip(message.metrics(), message.known if message.is_data() else message.metrics()):
            if known is None or metric.is_historical or metric.timestamp is None:
                continue
            place = message.device, known.name
            fine = metric.timestamp >= last.get(place, 0)
            yield message.n, fine, f"'{known.name}' goes back in time, and is not marked as history"
            last[place] = max(metric.timestamp, last.get(place, 0))


def fence_topic(node):
    return f"plc-gateway/{node.label()}/fence"


def fences(node):
    """Each fence with its connection, and the number of the packet that acknowledged it, nothing without one."""
    for connection in node.connections:
        answers = {}
        for step in connection.packets(mqtt.PUBACK, from_edge=False):
            answers.setdefault(step.packet.identifier, []).append(step.n)
        for step in connection.packets(mqtt.PUBLISH):
            if step.message.topic == fence_topic(node):
                behind = [n for n in answers.get(step.packet.identifier, []) if n > step.n]
                yield connection, step.message, behind[0] if behind else None


@rule
def fences_have_qos_1(node):
    for _, message, _ in fences(node):
        fine = message.qos == 1 and not message.retain
        yield message.n, fine, f"a fence has QoS {message.qos}, retained: {message.retain}"


@rule
def one_fence_at_a_time(node):
    last = {}
    for connection, message, answer in fences(node):
        before = last.get(connection.number, 0)
        fine = before is not None and before < message.n
        yield message.n, fine, "a fence while the last one was not acknowledged"
        last[connection.number] = answer


@rule
def fence_follows_data(node):
    for connection in node.connections:
        numbers = [message.n for message in connection.messages() if message.topic == fence_topic(node)]
        times = {message.n: message.t for message in connection.messages() if message.topic == fence_topic(node)}
        waiting = [message.n for where, message, answer in fences(node) if where is connection and answer is None]
        for message in connection.messages("DDATA"):
            at = bisect.bisect_right(numbers, message.n)
            fine = at < len(numbers) and times[numbers[at]] <= message.t + FENCE_LIMIT_MS
            unanswered = bool(waiting) and waiting[0] < message.n
            if fine or not unanswered and undisturbed(node, connection, message.t, FENCE_LIMIT_MS):
                yield message.n, fine, "no fence came behind this data"


@rule
def overdue_fence_ends_connection(node):
    """A broker that does not acknowledge is not believed for longer than one and a half keep-alives."""
    for connection, message, answer in fences(node):
        if answer is None and connection.connect:
            end = message.t + connection.connect.packet.keep_alive_s * 1500 + AHEAD_MS
            late = [other.n for other in connection.messages("NDATA", "DDATA", "NBIRTH", "DBIRTH")
                    if other.payload and (other.payload.timestamp or 0) > end]
            yield message.n, not late, f"packets {late[:3]} though this fence was long overdue"


def quality_of(metric):
    quality = metric.properties.get("Quality") if metric.properties else None
    return quality.value if quality else None


@rule
def null_when_not_good(node):
    for message in node.messages("DBIRTH", "DDATA"):
        for metric in message.metrics():
            quality = quality_of(metric)
            fine = quality not in (None, GOOD) if value_of(metric) == NULL else quality in (None, GOOD)
            yield message.n, fine, f"{metric.label()} has quality {quality} and the value {value_of(metric)}"


@rule
def quality_in_births(node):
    for message in node.messages("DBIRTH"):
        with_it = {id(metric) for metric, _ in properties_of(message)}
        for metric in message.metrics():
            yield message.n, id(metric) in with_it, f"{metric.label()} has no quality in its birth"


@rule
def quality_only_when_told(node):
    """In live data: when not good, and when just good again."""
    for connection in node.connections:
        was_null = {}
        for message in connection.messages("NBIRTH", "DBIRTH", "DDATA"):
            was_null = {} if message.kind == "NBIRTH" else was_null
            for metric, known in zip(message.metrics(), message.known or message.metrics()):
                if known is None or metric.is_historical:
                    continue
                null = value_of(metric) == NULL
                if message.kind == "DDATA":
                    wanted = null or was_null.get(known.name, False)
                    fine = (quality_of(metric) is not None) == wanted
                    yield message.n, fine, f"'{known.name}' should {'' if wanted else 'not '}tell its quality"
                was_null[known.name] = null


@rule
def no_birth_while_lost(node):
    for note in node.notes_of("device-lost"):
        returns = [other["t"] for other in node.notes_of("device-back") if other["t"] > note["t"]]
        back = min(returns, default=float("inf"))
        for message in node.messages("DBIRTH"):
            sent = message.payload.timestamp if message.payload and message.payload.timestamp else 0
            fine = not note["t"] + ANSWER_LIMIT_MS < sent < back - IN_FLIGHT_MS
            yield message.n, fine, "DBIRTH while the controller was away"


def other_publications(node):
    """Neither of the standard's namespace nor fences: the JSON form."""
    for message in node.messages():
        if message.topic != fence_topic(node) and message.topic.split("/")[0] != NAMESPACE:
            yield message


@rule
def json_is_qos_1(node):
    for message in other_publications(node):
        fine = message.qos == 1 and not message.retain
        yield message.n, fine, f"{message.topic} has QoS {message.qos}, retained: {message.retain}"


@rule
def json_is_whole(node):
    for message in other_publications(node):
        try:
            form = json.loads(message.body.decode("utf-8"))
            fine = JSON_KEYS <= set(form) <= JSON_KEYS | {"historical", "reason"}
            is_no_number = str(form.get("reason")).split(":")[0] in NO_NUMBERS
            is_good = form["quality"] == "good"
            fine = fine and (not is_good or is_no_number if form["value"] is None else is_good)
            fine = fine and not (is_good and "reason" in form and not is_no_number)
        except (ValueError, TypeError, KeyError):
            fine = False
        yield message.n, fine, f"{message.topic} is no value in JSON: {message.body[:80]!r}"


def command_results(connection):
    """The "Last Command" metrics as they stand behind each NDATA that changes one of them."""
    state = {}
    for message in connection.messages("NBIRTH", "NDATA"):
        knowns = message.known if message.is_data() else message.metrics()
        named = [(known.name or "", metric) for metric, known in zip(message.metrics(), knowns) if known is not None]
        changed = {name[len(COMMAND):]: metric.value for name, metric in named if name.startswith(COMMAND)}
        state = {**state, **changed}
        if changed and message.is_data():
            yield message, state


def command_names(connection, message):
    """Of the metrics of a DCMD, by the births before it; nothing for one that nobody knows."""
    by_alias = {metric.alias: metric.name for birth in connection.messages("NBIRTH", "DBIRTH") if birth.n < message.n
                for metric in birth.metrics() if metric.alias is not None}
    return [metric.name if metric.name is not None else by_alias.get(metric.alias) for metric in message.metrics()]


@rule
def commands_are_answered(node):
    for connection in node.connections:
        results = list(command_results(connection))
        for message in connection.delivered():
            births = [birth for birth in connection.messages("DBIRTH") if birth.n < message.n]
            if message.kind != "DCMD" or message.retain or not births or message.topic != node.topic(
                    "DCMD", births[0].device):
                continue
            for name in command_names(connection, message):
                fine = any(message.n < answer.n and answer.t <= message.t + ANSWER_LIMIT_MS
                           and name in (None, state.get("Name")) for answer, state in results)
                if fine or undisturbed(node, connection, message.t):
                    yield message.n, fine, f"the command for '{name}' has no result"


@rule
def results_are_words(node):
    for connection in node.connections:
        for message, state in command_results(connection):
            word = state.get("Result")
            fine = word in RESULTS and (word == "done") == (not state.get("Reason"))
            yield message.n, fine, f"the result of a command is '{word}' with the reason '{state.get('Reason')}'"


def pauses(node):
    """Spans in which nothing can be read: the gateway did not run, or the controller was away."""
    ends = {"killed": "started", "stopping": "started", "device-lost": "device-back"}
    for note in node.notes_of(*ends):
        back = [other["t"] for other in node.notes_of(ends[note["event"]]) if other["t"] > note["t"]]
        yield note["t"], min(back, default=node.last_t) + RETURN_MS


def covered_ms(spans, start, end):
    """How much of a time lies in spans, which may overlap."""
    covered = 0
    for first, last in sorted(spans):
        covered += max(0, min(last, end) - max(first, start))
        start = max(start, last)
    return covered


def gaps(node, metric_name):
    """Between the times of a metric's values, live or as history: the packet behind each, and its length."""
    times = {}
    for message in node.messages("DBIRTH", "DDATA"):
        for metric, known in zip(message.metrics(), message.known or message.metrics()):
            if known is not None and known.name == metric_name and metric.timestamp is not None:
                times.setdefault(metric.timestamp, message.n)
    moments, spans = sorted(times), list(pauses(node))
    for before, after in zip(moments, moments[1:]):
        yield times[after], after - before - covered_ms(spans, before, after)


@rule
def nothing_is_missing(node):
    """Of metrics that a note says to change often."""
    for note in node.notes_of("changes"):
        for n, gap in gaps(node, note["metric"]):
            yield n, gap <= note["limit_ms"], f"nothing of '{note['metric']}' for {gap / 1000:.1f} s before"
