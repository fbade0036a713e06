"""Rules about births, and about the order of births, data and deaths with their sequence numbers."""
from datatypes import BOOLEAN, INT64
from rulebook import AHEAD_MS, CLOCK_MS, device_down, rule
from session import value_of

REBIRTH = "Node Control/Rebirth"
WITHOUT_ALIAS = (REBIRTH, "bdSeq")  # the one must not have one, the other stands under its name in NDEATH too
IN_SEQUENCE = ("NBIRTH", "NDATA", "DBIRTH", "DDATA", "DDEATH")


@rule
def qos_0(node, *kinds):
    for message in node.messages(*kinds):
        yield message.n, message.qos == 0, f"{message.kind} has QoS {message.qos}"


@rule
def not_retained(node, *kinds):
    for message in node.messages(*kinds):
        yield message.n, not message.retain, f"{message.kind} is to be retained"


@rule
def decodes(node, *kinds):
    for message in node.messages(*kinds):
        yield message.n, message.payload is not None and not message.findings, "; ".join(message.findings)


@rule
def has_timestamp(node, *kinds):
    for message in node.messages(*kinds):
        yield message.n, bool(message.payload and message.payload.timestamp), f"{message.kind} has no time"


@rule
def timestamp_is_utc(node):
    for message in node.messages(*IN_SEQUENCE):
        if message.payload and message.payload.timestamp is not None:
            late = message.t - message.payload.timestamp
            yield message.n, -AHEAD_MS <= late <= CLOCK_MS, f"the message's time is off by {late / 1000:.0f} s from UTC"


@rule
def has_sequence(node, *kinds):
    for message in node.messages(*(kinds or IN_SEQUENCE)):
        yield message.n, message.sequence() is not None, f"{message.kind} has no sequence number"


@rule
def sequence_in_range(node, *kinds):
    for message in node.messages(*kinds):
        number = message.sequence()
        yield message.n, number is not None and number <= 255, f"{message.kind} has the sequence number {number}"


@rule
def sequence_starts_at_zero(node):
    for message in node.messages("NBIRTH"):
        yield message.n, message.sequence() == 0, f"NBIRTH has the sequence number {message.sequence()}"


@rule
def sequence_goes_on(node, *kinds):
    """From message to message of a connection, whatever their kinds; told for those of the given kinds."""
    for connection in node.connections:
        last = None
        for message in connection.messages(*IN_SEQUENCE):
            number = message.sequence()
            if message.kind in (kinds or IN_SEQUENCE) and message.kind != "NBIRTH" and last is not None:
                yield message.n, number == (last + 1) % 256, f"{message.kind} has {number} behind {last}"
            last = number if number is not None else last


@rule
def birth_metrics_are_whole(node, kind):
    for message in node.messages(kind):
        for metric in message.metrics():
            fine = metric.name is not None and metric.datatype is not None
            fine = fine and (metric.value_field is not None or metric.is_null is True)
            yield message.n, fine, f"{metric.label()} lacks its name, datatype or value"


@rule
def value_or_null(node, kind):
    for message in node.messages(kind):
        for metric in message.metrics():
            fine = (metric.value_field is None) == (metric.is_null is True)
            yield message.n, fine, f"{metric.label()} has a value and is null, or has neither"


@rule
def bd_seq_in_nbirth(node):
    for message in node.messages("NBIRTH"):
        metric = message.payload.get("bdSeq") if message.payload else None
        fine = metric is not None and metric.datatype == INT64 and metric.value_field == "long_value"
        yield message.n, fine, "NBIRTH has no bdSeq of type Int64"


def rebirth_metrics(node):
    for message in node.messages("NBIRTH"):
        yield message, message.payload.get(REBIRTH) if message.payload else None


@rule
def rebirth_metric(node):
    for message, metric in rebirth_metrics(node):
        yield message.n, metric is not None, f"NBIRTH has no '{REBIRTH}'"


@rule
def rebirth_is_boolean(node):
    for message, metric in rebirth_metrics(node):
        fine = metric is not None and metric.datatype == BOOLEAN
        yield message.n, fine, f"'{REBIRTH}' is no Boolean"


@rule
def rebirth_is_false(node):
    for message, metric in rebirth_metrics(node):
        fine = metric is not None and metric.value_field == "boolean_value" and metric.value is False
        yield message.n, fine, f"'{REBIRTH}' is not false"


@rule
def rebirth_has_no_alias(node):
    for message, metric in rebirth_metrics(node):
        if metric is not None:
            yield message.n, metric.alias is None, f"'{REBIRTH}' has an alias"


@rule
def alias_is_unique(node):
    """Over the node and its devices, in what the births of one connection say together."""
    for connection in node.connections:
        owners = {}
        for message in connection.messages("NBIRTH", "DBIRTH"):
            if message.kind == "NBIRTH":
                owners = {}
            for metric in message.metrics():
                if metric.alias is not None:
                    owner = owners.setdefault(metric.alias, (message.device, metric.name))
                    fine = owner == (message.device, metric.name)
                    yield message.n, fine, f"alias {metric.alias} is {metric.label()} and '{owner[1]}'"
            numbers = [metric.alias for metric in message.metrics() if metric.alias is not None]
            yield message.n, len(numbers) == len(set(numbers)), "an alias stands twice"


@rule
def births_give_aliases(node):
    """Where aliases are used at all."""
    for connection in node.connections:
        births = connection.messages("NBIRTH", "DBIRTH")
        if any(metric.alias is not None for message in births for metric in message.metrics()):
            for message in births:
                for metric in message.metrics():
                    fine = metric.name is not None and (metric.alias is not None or metric.name in WITHOUT_ALIAS)
                    yield message.n, fine, f"{metric.label()} lacks its name or its alias"


@rule
def names_differ_in_lower_case(node):
    for message in node.messages("NBIRTH", "DBIRTH"):
        names = [metric.name.lower() for metric in message.metrics() if metric.name is not None]
        twice = sorted({name for name in names if names.count(name) > 1}) if len(names) != len(set(names)) else []
        yield message.n, not twice, f"{twice[:1]} stands twice, capitals aside"


@rule
def birth_tells_of_all(node, kind):
    """Every metric of data stood in the birth before it."""
    data = {"NBIRTH": "NDATA", "DBIRTH": "DDATA"}[kind]
    for message in node.messages(data):
        for metric, known in zip(message.metrics(), message.known):
            yield message.n, known is not None, f"{metric.label()} of {data} stood in no {kind} before it"


@rule
def nbirth_before_dbirth(node):
    for message in node.messages("DBIRTH"):
        yield message.n, message.born, "DBIRTH without an NBIRTH in its connection"


@rule
def dbirth_follows_nbirth(node):
    """With nothing between them, but for a controller that was known to be away."""
    for connection in node.connections:
        between, dead = None, False
        for message in connection.messages("NBIRTH", "NDATA", "DDATA", "DBIRTH", "DDEATH"):
            if message.kind == "NBIRTH":
                between, dead = None, device_down(node, message.t)
            elif message.kind == "DDEATH":
                dead = True
            elif message.kind == "DBIRTH":
                dead |= device_down(node, message.t)
                yield message.n, between is None or dead, f"{between} stands between NBIRTH and this DBIRTH"
                between, dead = None, False
            elif not message.alive:
                between = message.kind


@rule
def data_behind_births(node, kind):
    for message in node.messages(kind):
        fine = message.born and (kind == "NDATA" or message.device in message.alive)
        yield message.n, fine, f"{kind} before its birth"


@rule
def data_changes_something(node, kind):
    """Against what was published before it in the connection, births included."""
    for connection in node.connections:
        values = {}
        for message in connection.messages("NBIRTH", "DBIRTH", kind):
            if message.kind == "NBIRTH":
                values = {}
            same = []
            for metric, known in zip(message.metrics(), message.known or message.metrics()):
                if known is None or metric.is_historical:
                    continue
                place = message.device, known.name
                if message.kind == kind and values.get(place) == value_of(metric):
                    same.append(known.name)
                values[place] = value_of(metric)
            live = sum(not metric.is_historical for metric in message.metrics())
            if message.kind == kind and live:
                # Metrics of the node that belong together are published together.
                fine = len(same) < live if kind == "NDATA" else not same
                yield message.n, fine, f"{kind} publishes {same[:3]} again, unchanged"


@rule
def data_names_metrics(node, kind):
    for message in node.messages(kind):
        yield message.n, bool(message.metrics()), f"{kind} holds no metric"


@rule
def times_in_order(node, *kinds):
    """Of metrics that are not historical, through the list of a message."""
    for message in node.messages(*kinds):
        times = [metric.timestamp for metric in message.metrics()
                 if not metric.is_historical and metric.timestamp is not None]
        back = [index for index in range(1, len(times)) if times[index] < times[index - 1]]
        yield message.n, not back, f"{message.kind} goes back in time within its list of metrics"
