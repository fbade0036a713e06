"""Rules about what the node must do when something happens to it: a host's state, a request for a rebirth, the loss of
the controller."""
import json
from dataclasses import dataclass

from rulebook import ANSWER_LIMIT_MS, IN_FLIGHT_MS, device_down, rule, undisturbed
from session import NAMESPACE, Message

STATE_TOPIC = NAMESPACE + "/STATE/"
REBIRTH = "Node Control/Rebirth"


@dataclass
class HostState:
    """What a host said of itself, as the node had to understand it."""
    message: Message
    own: bool     # of the node's primary host
    online: bool
    valid: bool   # not older than the last one
    since_online: bool  # not older than the last online one; true where there was none


def primary_host(node):
    """The topic of its state, as the node subscribes to it; nothing without one."""
    topics = [text for connection in node.connections for _, text, _ in connection.subscriptions()
              if text.startswith(STATE_TOPIC)]
    return topics[0] if topics else None


def read_state(body):
    try:
        state = json.loads(body.decode("utf-8"))
        online, time = state["online"], state["timestamp"]
    except (ValueError, KeyError, TypeError):
        return None
    return (online, time) if isinstance(online, bool) and isinstance(time, (int, float)) else None


def host_states(node):
    """Connections, each with the states that were delivered in it. A new process knows nothing of earlier ones."""
    topic, last, last_online, since = primary_host(node), None, None, float("-inf")
    for connection in node.connections:
        if any(since < note["t"] <= connection.opened for note in node.notes_of("started")):
            last = last_online = None
        since, states = connection.opened, []
        for message in connection.delivered():
            state = read_state(message.body) if message.topic.startswith(STATE_TOPIC) else None
            if state is None:
                continue
            online, time = state
            own = message.topic == topic
            valid = own and (last is None or time >= last)
            states.append(HostState(message, own, online, valid, last_online is None or time >= last_online))
            if valid:
                last = time
                last_online = time if online else last_online
        yield connection, states


def births_with_states(node):
    """The births of a node with a primary host, each with the states that it could know."""
    if primary_host(node) is None:
        return
    for connection, states in host_states(node):
        for message in connection.messages("NBIRTH", "DBIRTH"):
            # What was delivered just before may have crossed the birth; an online state cannot have been needed then.
            yield message, [state for state in states if state.message.n < message.n and (
                state.online or state.message.t < message.t - IN_FLIGHT_MS)]


@rule
def births_wait_for_host(node):
    for message, states in births_with_states(node):
        valid = [state for state in states if state.valid]
        fine = bool(valid) and valid[-1].online
        yield message.n, fine, f"{message.kind} while the primary host was not online"


@rule
def other_hosts_do_not_count(node):
    for message, states in births_with_states(node):
        if any(not state.own for state in states):
            fine = any(state.valid and state.online for state in states)
            yield message.n, fine, f"{message.kind} for the state of another host"


@rule
def offline_does_not_count(node):
    for message, states in births_with_states(node):
        if any(state.own and not state.online for state in states):
            valid = [state for state in states if state.valid]
            fine = bool(valid) and valid[-1].online
            yield message.n, fine, f"{message.kind} though the primary host said that it is offline"


@rule
def old_states_do_not_count(node):
    for message, states in births_with_states(node):
        if any(state.own and not state.valid for state in states):
            fine = any(state.valid and state.online for state in states)
            yield message.n, fine, f"{message.kind} for a state of the primary host that is older than the last one"


@rule
def subscribes_host_state(node):
    topic = primary_host(node)
    for note in node.notes_of("primary-host"):
        yield note["n"], topic == STATE_TOPIC + note["host"], f"no subscription to the state of {note['host']}"
    for connection in node.connections if topic else []:
        for message in connection.messages("NBIRTH")[:1]:
            found = [qos for step, text, qos in connection.subscriptions() if text == topic and step.n < message.n]
            yield message.n, found == [1], f"NBIRTH without a subscription to {topic} at QoS 1"


def host_losses(node, since_online):
    """Offline states that came into a running session, with the NDEATH behind each."""
    for connection, states in host_states(node):
        for state in states:
            born = [message for message in connection.messages("NBIRTH", "NDEATH") if message.n < state.message.n]
            if not state.own or state.online or not born or born[-1].kind != "NBIRTH":
                continue
            if state.since_online == since_online:
                end = state.message.t + ANSWER_LIMIT_MS
                deaths = [message for message in connection.messages("NDEATH")
                          if message.n > state.message.n and message.t <= end]
                yield connection, state.message, deaths


@rule
def host_loss_ends_session(node):
    for connection, message, deaths in host_losses(node, True):
        if deaths:
            later = [sent.kind for sent in connection.messages() if sent.n > deaths[0].n]
            gone = connection.closed is not None and connection.closed.t <= deaths[0].t + ANSWER_LIMIT_MS
            gone |= node.last_t < deaths[0].t + ANSWER_LIMIT_MS
            yield message.n, gone and not later, "NDEATH, but no end of the connection behind it"
        elif undisturbed(node, connection, message.t):
            yield message.n, False, "the primary host is offline, and no NDEATH came"


@rule
def host_loss_is_followed_by_connect(node):
    for connection, message, deaths in host_losses(node, True):
        later = [other for other in node.connections if other.opened > message.t]
        stopped = [note for note in node.notes_of("stopping", "killed", "down") if note["t"] > message.t]
        if deaths and (later or not stopped and node.last_t > deaths[0].t + 3 * ANSWER_LIMIT_MS):
            yield message.n, bool(later), "no new connection after the primary host went offline"


@rule
def old_host_loss_is_ignored(node):
    valid = [message for _, message, _ in host_losses(node, True)]
    for _, message, deaths in host_losses(node, False):
        end = message.t + ANSWER_LIMIT_MS
        reasons = [note for note in node.notes_of("stopping") if message.t < note["t"] < end]
        reasons += [other for other in valid if message.t < other.t < end]
        if not reasons:
            yield message.n, not deaths, "NDEATH for a state of the primary host that is older than its last online one"


def rebirth_requests(node):
    """New requests to a node that is born, each with the NBIRTHs that came in time."""
    for connection in node.connections:
        stamps = set()
        for message in connection.delivered():
            metric = message.payload.get(REBIRTH) if message.kind == "NCMD" and message.payload else None
            if message.topic != node.topic("NCMD") or metric is None or metric.value is not True or message.retain:
                continue
            repeated = metric.timestamp is not None and metric.timestamp in stamps
            stamps.add(metric.timestamp)
            births = connection.messages("NBIRTH")
            answers = [birth for birth in births if birth.n > message.n and birth.t <= message.t + ANSWER_LIMIT_MS]
            born = any(birth.n < message.n for birth in births)
            if born and not repeated and (answers or undisturbed(node, connection, message.t)):
                yield connection, message, answers


@rule
def rebirth_answered(node):
    for connection, request, births in rebirth_requests(node):
        yield request.n, bool(births), "no NBIRTH came for this request"
        if births and births[0].alive and not device_down(node, births[0].t):
            behind = [message.kind for message in connection.messages() if message.n > births[0].n and message.kind]
            if behind:
                yield births[0].n, behind[0] == "DBIRTH", f"{behind[0]} behind the NBIRTH of a rebirth, not DBIRTH"


@rule
def rebirth_stops_data(node):
    for connection, request, births in rebirth_requests(node):
        end = births[0].n if births else float("inf")
        late = [message for message in connection.messages("NDATA", "DDATA") if request.n < message.n < end
                and message.payload and (message.payload.timestamp or 0) > request.t + IN_FLIGHT_MS]
        yield request.n, not late, "data goes on between the request for a rebirth and NBIRTH"


@rule
def rebirth_keeps_bd_seq(node):
    for connection, request, births in rebirth_requests(node):
        for birth in births[:1]:
            metric = birth.payload.get("bdSeq") if birth.payload else None
            fine = metric is not None and metric.value == connection.bd_seq()
            yield birth.n, fine, "the NBIRTH of a rebirth has another bdSeq than the will"


@rule
def device_loss_is_told(node):
    """Within the limit, when a session with that device alive goes on meanwhile."""
    for note in node.notes_of("device-lost"):
        back = [other["t"] for other in node.notes_of("device-back") if other["t"] > note["t"]]
        for connection in node.connections:
            births = [message for message in connection.messages("NBIRTH", "DBIRTH", "DDEATH") if message.n < note["n"]]
            if not births or births[-1].kind != "DBIRTH" or (back and back[0] < note["t"] + ANSWER_LIMIT_MS):
                continue
            deaths = [message for message in connection.messages("DDEATH")
                      if message.n > note["n"] and message.t <= note["t"] + ANSWER_LIMIT_MS]
            if deaths or undisturbed(node, connection, note["t"] + 1):
                yield note["n"], bool(deaths), "the controller was lost, and no DDEATH came"
