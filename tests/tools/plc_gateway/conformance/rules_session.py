"""Rules about topics, CONNECT with its will, subscriptions, and the end of a connection."""
import mqtt
from rulebook import ANSWER_LIMIT_MS, AHEAD_MS, rule
from session import DEVICE_KINDS, NAMESPACE, NODE_KINDS

INT64 = 4


def publications(node):
    """Everything that the node's clients sent or left as a will."""
    for connection in node.connections:
        if connection.will:
            yield connection.will
        yield from connection.messages()


def kind_in(topic):
    parts = topic.split("/")
    return parts[2] if len(parts) > 2 and parts[2] in NODE_KINDS + DEVICE_KINDS else ""


@rule
def topic_structure(node):
    for message in publications(node):
        if message.topic.split("/")[0] == NAMESPACE or kind_in(message.topic):
            yield message.n, bool(message.kind), f"the topic {message.topic} has not the structure of the namespace"


@rule
def namespace(node):
    for message in publications(node):
        if kind_in(message.topic):
            found = message.topic.split("/")[0]
            yield message.n, found == NAMESPACE, f"the namespace of {message.topic} is {found}"


@rule
def valid_id(node, place):
    at = {"group": 1, "node": 3, "device": 4}[place]
    for message in publications(node):
        parts = message.topic.split("/")
        if kind_in(message.topic) and len(parts) > at:
            fine = parts[at] != "" and not set(parts[at]) & set("+#\0")
            yield message.n, fine, f"'{parts[at]}' is not an id of a {place}"


@rule
def device_in_topic(node):
    for message in publications(node):
        if kind_in(message.topic) in DEVICE_KINDS:
            yield message.n, len(message.topic.split("/")) == 5, f"{message.topic} names no device"


@rule
def no_device_in_topic(node):
    for message in publications(node):
        if kind_in(message.topic) in NODE_KINDS:
            yield message.n, len(message.topic.split("/")) == 4, f"{message.topic} names a device, or more"


@rule
def topic_of(node, kind):
    for message in publications(node):
        if kind_in(message.topic) == kind:
            wanted = node.topic(kind, message.topic.split("/")[-1] if kind in DEVICE_KINDS else "")
            yield message.n, message.topic == wanted, f"the topic is {message.topic}, not {wanted}"


@rule
def unique_descriptor(node):
    """Two that speak for one node at a time would mix their messages."""
    for earlier, later in zip(node.connections, node.connections[1:]):
        births = later.messages("NBIRTH")
        start = births[0].payload.timestamp if births and births[0].payload else None
        for message in earlier.messages() if start is not None else []:
            if message.payload and message.payload.timestamp is not None and message.n > births[0].n:
                yield (message.n, message.payload.timestamp <= start + AHEAD_MS,
                       f"connection {earlier.number} goes on as {node.label()} beside connection {later.number}")
        for message in births:
            yield message.n, True, ""


@rule
def distinct_ids_in_lower_case(node):
    same = [other.label() for other in node.others if other.label().lower() == node.label().lower()]
    for message in node.messages("NBIRTH"):
        yield message.n, not same, f"{node.label()} and {', '.join(same)} differ in capitals alone"


@rule
def session_before_births(node):
    for connection in node.connections:
        answers = [step.n for step in connection.packets(mqtt.CONNACK, from_edge=False) if step.packet.reason == 0]
        for message in connection.messages("NBIRTH", "DBIRTH"):
            yield message.n, bool(answers) and answers[0] < message.n, "a birth before the broker accepted the CONNECT"


@rule
def will_present(node):
    for connection in node.connections:
        if connection.connect:
            yield connection.connect.n, connection.will is not None, "the CONNECT has no will"


def wills(node):
    return [connection.will for connection in node.connections if connection.will]


@rule
def will_topic(node):
    for will in wills(node):
        wanted = node.topic("NDEATH")
        yield will.n, will.topic == wanted, f"the will's topic is {will.topic}, not {wanted}"


@rule
def will_decodes(node):
    for will in wills(node):
        yield will.n, will.payload is not None and not will.findings, f"the will: {'; '.join(will.findings)}"


@rule
def will_qos_1(node):
    for will in wills(node):
        yield will.n, will.qos == 1, f"the will has QoS {will.qos}"


@rule
def will_not_retained(node):
    for will in wills(node):
        yield will.n, not will.retain, "the will is to be retained"


@rule
def will_bd_seq(node):
    for will in wills(node):
        metric = will.payload.get("bdSeq") if will.payload else None
        fine = metric is not None and metric.datatype == INT64 and metric.value_field == "long_value"
        yield will.n, fine and metric.value <= 255, "the will has no bdSeq of type Int64 from 0 to 255"


@rule
def bd_seq_goes_on(node):
    """One more for each CONNECT. A kill, or a CONNECT that nobody read, may have taken a number each."""
    last, since = None, float("-inf")
    for connection in node.connections:
        notes = [note for note in node.notes if since < note["t"] <= connection.opened]
        number = connection.bd_seq()
        if number is None:
            continue
        since = connection.opened
        if any(note["event"] == "fresh" for note in notes):
            yield connection.connect.n, number == 0, f"the first bdSeq of all is {number}, not 0"
        elif last is not None:
            lost = sum(note["event"] in ("killed", "unread") for note in notes)
            fine = (number - last) % 256 in range(1, 2 + lost)
            yield connection.connect.n, fine, f"bdSeq {number} follows {last}"
        last = number


@rule
def bd_seq_is_the_wills(node, *kinds):
    for connection in node.connections:
        for message in connection.messages(*kinds):
            metric = message.payload.get("bdSeq") if message.payload else None
            number = metric.value if metric else None
            fine = number is not None and number == connection.bd_seq()
            yield message.n, fine, f"bdSeq of {message.kind} is {number}, that of the will {connection.bd_seq()}"


def deaths(node):
    return [message for message in publications(node) if message.kind == "NDEATH"]


@rule
def death_holds_bd_seq_alone(node):
    for message in deaths(node):
        names = [metric.name for metric in message.metrics()]
        yield message.n, names == ["bdSeq"], f"NDEATH holds {names}, not bdSeq alone"


@rule
def death_without_seq(node):
    for message in deaths(node):
        yield message.n, message.sequence() is None, f"NDEATH has the sequence number {message.sequence()}"


def goodbyes(node, *versions):
    """The DISCONNECTs, with what was published last before each."""
    for connection in node.connections:
        for step in connection.packets(mqtt.DISCONNECT):
            if not versions or step.packet.version in versions:
                sent = [message for message in connection.messages() if message.n < step.n]
                yield connection, step, sent[-1].kind if sent else "nothing"


@rule
def death_before_goodbye(node, *versions):
    for _, step, last in goodbyes(node, *(int(version) for version in versions)):
        yield step.n, last == "NDEATH", f"DISCONNECT behind {last or 'another message'}, not behind NDEATH"


@rule
def death_before_stop(node):
    """The same where the gateway was asked to end while it was connected, however it then ended."""
    yield from death_before_goodbye(node)
    for note in node.notes_of("stopping"):
        for connection in node.connections:
            if not connection.opened < note["t"] or connection.closed is None or connection.closed.t < note["t"]:
                continue
            if connection.closed_by == "client" and connection.messages("NBIRTH"):
                fine = any(message.n > note["n"] for message in connection.messages("NDEATH"))
                yield connection.closed.n, fine, "the gateway ended without an NDEATH"


@rule
def goodbye_publishes_will(node):
    for _, step, _ in goodbyes(node, 5):
        fine = step.packet.reason == mqtt.WITH_WILL
        yield step.n, fine, f"DISCONNECT has reason {step.packet.reason}, not 4, after which the will is published"


@rule
def goodbye_is_last(node):
    for connection, step, _ in goodbyes(node):
        late = [later.n for later in connection.steps if later.from_edge and later.n > step.n]
        yield step.n, not late, f"packets {late[:3]} behind DISCONNECT"


def first_subscription(connection, topic, before):
    """The QoS of a subscription to exactly that topic, sent before a packet; nothing without one."""
    found = [qos for step, text, qos in connection.subscriptions() if text == topic and step.n < before]
    return found[0] if found else None


@rule
def subscribes_node_commands(node):
    for connection in node.connections:
        for message in connection.messages("NBIRTH")[:1]:
            qos = first_subscription(connection, node.topic("NCMD"), message.n)
            yield message.n, qos == 1, f"NBIRTH without a subscription to {node.topic('NCMD')} at QoS 1 (found: {qos})"


@rule
def subscribes_device_commands(node):
    """Of a node that takes commands for devices: it subscribed to some, or it publishes how they ended."""
    for connection in node.connections:
        writes = any("/DCMD/" in text for _, text, _ in connection.subscriptions())
        writes |= any(message.payload and message.payload.get("Last Command/Name")
                      for message in connection.messages("NBIRTH"))
        for message in connection.messages("DBIRTH")[:1] if writes else []:
            topic = node.topic("DCMD", message.device)
            qos = first_subscription(connection, topic, message.n)
            yield message.n, qos == 1, f"DBIRTH without a subscription to {topic} at QoS 1 (found: {qos})"


@rule
def one_connection_at_a_time(node):
    """A connection that lives on beside the next one; one whose end the broker saw late does not count."""
    yield from unique_descriptor(node)
    for earlier, later in zip(node.connections, node.connections[1:]):
        if earlier.closed and earlier.closed.t > later.opened + ANSWER_LIMIT_MS:
            late = [step.n for step in earlier.steps if step.from_edge and step.t > later.opened + ANSWER_LIMIT_MS]
            yield later.steps[0].n, not late, f"connection {earlier.number} is used beside connection {later.number}"
