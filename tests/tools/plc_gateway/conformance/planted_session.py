"""Violations of connections: topics, wills, bdSeq, subscriptions, births at the wrong time, deaths that do not come."""
from planted import (add_before, add_behind, copy_of, fences, later_copy, metric, note, packets, plant, remove,
                     renumber, sent)
from synthetic import DEVICE, topic


def qos_and_retain(kind, names, more=""):
    @plant(f"topics-{kind.lower()}-mqtt {names['qos']}", kind)
    def has_qos_1(forms, kind):
        sent(forms, kind)[-1]["qos"] = 1

    @plant(f"topics-{kind.lower()}-mqtt {names['retain']} gateway-no-retained", kind)
    def is_retained(forms, kind):
        sent(forms, kind)[-1]["retain"] = True


for each_kind in ("NBIRTH", "DBIRTH", "NDATA", "DDATA"):
    qos_and_retain(each_kind, {"qos": f"payloads-{each_kind.lower()}-qos",
                               "retain": f"payloads-{each_kind.lower()}-retain"})
qos_and_retain("DDEATH", {"qos": "", "retain": ""})


@plant("message-flow-edge-node-birth-publish-nbirth-qos message-flow-edge-node-birth-publish-nbirth-retained", "NBIRTH")
@plant("message-flow-device-birth-publish-dbirth-qos message-flow-device-birth-publish-dbirth-retained", "DBIRTH")
def has_qos_2_and_is_retained(forms, kind):
    sent(forms, kind)[0].update(qos=2, retain=True)


@plant("topics-nbirth-topic message-flow-edge-node-birth-publish-nbirth-topic", "NBIRTH")
@plant("topics-dbirth-topic message-flow-device-birth-publish-dbirth-topic "
       "message-flow-device-birth-publish-dbirth-match-edge-node-topic", "DBIRTH")
@plant("topics-ndata-topic", "NDATA")
@plant("topics-ddata-topic", "DDATA")
@plant("topics-ndeath-topic", "NDEATH")
@plant("topics-ddeath-topic", "DDEATH")
def names_another_node(forms, kind):
    sent(forms, kind)[-1]["topic"] = sent(forms, kind)[-1]["topic"].replace("press1", "press2", 1)


@plant("topic-structure-namespace-a topic-structure", "spBv1.0", "spBv1.1", name="another namespace")
@plant("topic-structure-namespace-device-id-associated-message-types topic-structure", f"/{DEVICE}/{DEVICE}",
       f"/{DEVICE}", name="no device")
@plant("topic-structure-namespace-valid-group-id", "/Plant/", "/Pl#nt/", name="a group with a wildcard")
@plant("topic-structure-namespace-valid-edge-node-id", "/DDATA/press1", "/DDATA/pr+ss1", name="a node with a wildcard")
@plant("topic-structure-namespace-valid-device-id", f"/press1/{DEVICE}", "/press1/#", name="a device with a wildcard")
@plant("topic-structure-namespace-unique-device-id gateway-one-device", f"/press1/{DEVICE}", "/press1/press9",
       name="a second device")
def topic_is_changed(forms, old, new):
    sent(forms, "DDATA")[5]["topic"] = sent(forms, "DDATA")[5]["topic"].replace(old, new)


@plant("topic-structure-namespace-device-id-non-associated-message-types topic-structure")
def node_data_with_device(forms):
    sent(forms, "NDATA")[0]["topic"] += "/press1"


@plant("gateway-no-commands")
def node_sends_command(forms):
    add_behind(forms, sent(forms, "NDATA")[0], copy_of(sent(forms, "NDATA")[0], topic=topic("NCMD")))


@plant("topic-structure-namespace-unique-edge-node-descriptor payloads-nbirth-edge-node-descriptor "
       "operational-behavior-primary-application-state-with-multiple-servers-single-server")
def two_connections_at_once(forms):
    birth = sent(forms, "DBIRTH", conn=2)[0]
    late = copy_of(sent(forms, "DDATA", conn=1)[-1], t=birth["t"] + 5000)
    late["payload"]["timestamp"] = birth["t"] + 5000
    add_behind(forms, birth, late)


@plant("case-sensitivity-sparkplug-ids")
def another_node_differs_in_capitals(forms):
    added = []
    for form in [form for form in forms if form["conn"] == 4 and form["what"] in ("open", "CONNECT", "CONNACK")
                 ] + sent(forms, "NBIRTH", conn=4):
        form = {**form, "conn": 99}
        if form["what"] == "PUBLISH":
            form["topic"] = form["topic"].replace("Plant", "PLANT")
        if form["what"] == "CONNECT":
            form["will"] = {**form["will"], "topic": form["will"]["topic"].replace("Plant", "PLANT")}
        added.append(form)
    forms += added


@plant("message-flow-edge-node-birth-publish-connect")
def birth_before_connack(forms):
    answer, birth = packets(forms, "CONNACK", conn=1)[0], sent(forms, "NBIRTH")[0]
    remove(forms, answer)
    add_behind(forms, birth, answer)


@plant("message-flow-edge-node-birth-publish-will-message payloads-ndeath-will-message")
def no_will(forms):
    packets(forms, "CONNECT", conn=2)[0]["will"] = None


def will_of(forms, conn):
    return packets(forms, "CONNECT", conn)[0]["will"]


@plant("message-flow-edge-node-birth-publish-will-message-topic payloads-ndeath-will-message topics-ndeath-topic",
       "topic", topic("NDEATH").replace("press1", "press2"))
@plant("message-flow-edge-node-birth-publish-will-message-qos payloads-ndeath-will-message-qos", "qos", 0)
@plant("message-flow-edge-node-birth-publish-will-message-will-retained payloads-ndeath-will-message-retain",
       "retain", True)
@plant("message-flow-edge-node-birth-publish-will-message-payload gateway-payload-strict", "payload",
       {"timestamp": 1, "metrics": [], "raw": b"\xFF"})
def will_is_changed(forms, what, value):
    will_of(forms, 2)[what] = value


@plant("message-flow-edge-node-birth-publish-will-message-payload-bdSeq")
def will_with_unsigned_bd_seq(forms):
    will_of(forms, 2)["payload"]["metrics"][0]["datatype"] = 8


def set_bd_seq(forms, conn, number):
    will_of(forms, conn)["payload"]["metrics"][0]["long_value"] = number
    for form in sent(forms, "NBIRTH", conn) + sent(forms, "NDEATH", conn):
        metric(form, "bdSeq")["long_value"] = number


@plant("topics-nbirth-bdseq-increment message-flow-edge-node-birth-publish-will-message-payload-bdSeq", 1, 7,
       name="the first bdSeq is not 0")
@plant("topics-nbirth-bdseq-increment message-flow-edge-node-birth-publish-will-message-payload-bdSeq", 2, 0,
       name="bdSeq starts anew with the process")
@plant("topics-nbirth-bdseq-increment", 3, 3, name="bdSeq leaves a number out")
def bd_seq_is(forms, conn, number):
    set_bd_seq(forms, conn, number)


@plant("topics-nbirth-bdseq-matching payloads-nbirth-bdseq-repeat payloads-ndeath-bdseq "
       "message-flow-edge-node-birth-publish-nbirth-payload-bdSeq", 0)
@plant("operational-behavior-data-commands-rebirth-action-3 topics-nbirth-bdseq-matching", 1,
       name="bdSeq moves on at a rebirth")
def bd_seq_of_birth_is_another(forms, index):
    metric(sent(forms, "NBIRTH")[index], "bdSeq")["long_value"] += 1


@plant("topics-nbirth-bdseq-included payloads-nbirth-bdseq message-flow-edge-node-birth-publish-nbirth-payload-bdSeq")
def birth_without_bd_seq(forms):
    birth = sent(forms, "NBIRTH")[0]["payload"]
    birth["metrics"] = [each for each in birth["metrics"] if each["name"] != "bdSeq"]


@plant("topics-ndeath-seq payloads-ndeath-seq")
def death_with_seq(forms):
    sent(forms, "NDEATH")[0]["payload"]["seq"] = 9


@plant("topics-ndeath-seq payloads-ndeath-seq")
def will_with_seq(forms):
    will_of(forms, 2)["payload"]["seq"] = 0


@plant("topics-ndeath-payload")
def death_with_more_metrics(forms):
    metrics = sent(forms, "NDEATH")[0]["payload"]["metrics"]
    metrics.append({**metrics[0], "name": "Reason"})


@plant("payloads-ndeath-will-message-publisher-disconnect-mqtt311 payloads-ndeath-will-message-publisher "
       "operational-behavior-edge-node-intentional-disconnect-ndeath", 2)
@plant("payloads-ndeath-will-message-publisher operational-behavior-edge-node-intentional-disconnect-ndeath", 4)
def goodbye_without_death(forms, conn):
    remove(forms, sent(forms, "NDEATH", conn)[0])


@plant("payloads-ndeath-will-message-publisher operational-behavior-edge-node-intentional-disconnect-ndeath")
def stopped_without_death_or_goodbye(forms):
    remove(forms, sent(forms, "NDEATH", 4)[0], packets(forms, "DISCONNECT", 4)[0])


@plant("payloads-ndeath-will-message-publisher-disconnect-mqtt50")
def goodbye_hides_will(forms):
    packets(forms, "DISCONNECT", 4)[0]["reason"] = 0


@plant("operational-behavior-edge-node-intentional-disconnect-packet")
def packet_behind_goodbye(forms):
    add_behind(forms, packets(forms, "DISCONNECT", 2)[0], sent(forms, "DDATA", 2)[0])


@plant("message-flow-edge-node-ncmd-subscribe", 0, (topic("NCMD"), 0), name="subscribes to commands at QoS 0")
@plant("message-flow-device-dcmd-subscribe", 1, ("spBv1.0/Plant/DCMD/#", 1), name="subscribes to others' commands")
@plant("operational-behavior-primary-application-state-with-multiple-servers-state-subs", 2, ("spBv1.0/other", 1),
       name="no subscription to the state of the host")
def subscription_is(forms, index, replacement):
    packets(forms, "SUBSCRIBE", 2)[0]["filters"][index] = replacement


def states(forms, conn):
    return [form for form in packets(forms, "PUBLISH", conn) if "/STATE/" in form["topic"]]


@plant("message-flow-edge-node-birth-publish-phid-wait operational-behavior-edge-node-birth-sequence-wait "
       "message-flow-edge-node-birth-publish-phid-wait-online message-flow-edge-node-birth-publish-phid-wait-id "
       "message-flow-edge-node-birth-publish-phid-wait-timestamp")
def birth_though_host_is_offline(forms):
    remove(forms, next(form for form in states(forms, 1) if b'200' in form["body"]))


@plant("message-flow-edge-node-birth-publish-phid-offline operational-behavior-edge-node-termination-host-offline")
def host_goes_and_node_stays(forms):
    remove(forms, sent(forms, "NDEATH", 2)[0], packets(forms, "DISCONNECT", 2)[0], packets(forms, "close", 2)[0])


@plant("operational-behavior-edge-node-termination-host-offline-reconnect "
       "operational-behavior-primary-application-state-with-multiple-servers-walk")
def host_goes_and_node_never_comes_back(forms):
    end = packets(forms, "close", 2)[0]
    remove(forms, *[form for form in forms if form["t"] > end["t"]])
    forms.append({"what": "note", "event": "up", "conn": 0, "t": end["t"] + 60000})


@plant("operational-behavior-edge-node-termination-host-offline-timestamp")
def old_state_of_host_is_obeyed(forms):
    old = next(form for form in states(forms, 1) if b'150' in form["body"])
    add_behind(forms, old, copy_of(sent(forms, "NDEATH", 2)[0], conn=1, t=old["t"] + 1))


@plant("operational-behavior-device-ddeath")
def loss_is_not_told(forms):
    remove(forms, sent(forms, "DDEATH")[0])
    renumber(forms)


@plant("operational-behavior-data-commands-rebirth-action-2")
def rebirth_is_not_answered(forms):
    remove(forms, sent(forms, "NBIRTH", 1)[1], sent(forms, "DBIRTH", 1)[2])
    renumber(forms)


@plant("operational-behavior-data-commands-rebirth-action-2", name="a rebirth without its device")
def rebirth_without_device(forms):
    remove(forms, sent(forms, "DBIRTH", 1)[2])
    renumber(forms)


@plant("operational-behavior-data-commands-rebirth-action-1")
def data_goes_on_after_request(forms):
    birth, data = sent(forms, "NBIRTH", 1)[1], sent(forms, "DDATA", 1)[5]
    add_before(forms, birth, later_copy(data, birth["t"] + 1500 - data["t"]))
    renumber(forms)


@plant("message-flow-device-birth-publish-nbirth-wait")
def device_before_node(forms):
    birth = sent(forms, "DBIRTH", 2)[0]
    remove(forms, birth)
    add_before(forms, sent(forms, "NBIRTH", 2)[0], birth)


@plant("payloads-dbirth-order payloads-ddata-order gateway-no-data-while-dead", "DDATA")
@plant("payloads-dbirth-order payloads-ndata-order", "NDATA")
def data_between_births(forms, kind):
    data = sent(forms, kind, 1)[0]
    remove(forms, data)
    add_before(forms, sent(forms, "DBIRTH", 1)[0], data)
    renumber(forms)


@plant("payloads-ndata-order")
def node_data_before_births(forms):
    data = sent(forms, "NDATA", 1)[0]
    remove(forms, data)
    add_before(forms, sent(forms, "NBIRTH", 1)[0], data)


@plant("gateway-no-data-while-dead", "DDATA")
@plant("gateway-no-data-while-dead", "DDEATH")
def device_speaks_though_dead(forms, kind):
    death = sent(forms, "DDEATH")[0]
    add_behind(forms, death, copy_of(sent(forms, kind, 1)[0], t=death["t"]))
    renumber(forms)


@plant("gateway-no-birth-while-lost")
def device_born_while_lost(forms):
    birth, when = sent(forms, "DBIRTH", 1)[1], note(forms, "device-back")["t"] - 2000
    birth["payload"]["timestamp"] = when


@plant("gateway-clean-session")
def session_outlives_connection(forms):
    packets(forms, "CONNECT", 2)[0]["clean"] = False


@plant("gateway-packets-whole")
def packet_is_none(forms):
    first = fences(forms, 2)[0]
    add_behind(forms, first, {"what": "raw", "dir": "in", "conn": 2, "t": first["t"], "bytes": b"\xF0\0"})
