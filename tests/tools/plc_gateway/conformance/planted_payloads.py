"""Violations of payloads: sequence numbers, times, births that lack something, data with too much, properties; and of
what the gateway promises of history, fences, quality and commands."""
from planted import add_behind, copy_of, fences, later_copy, metric, packets, plant, remove, renumber, sent
from synthetic import COMMAND_ALIASES, FIRST_ALIAS, POLLS_ALIAS

HOUR_MS = 3600000
SEQUENCE = {"DBIRTH": "topics-dbirth-seq payloads-dbirth-seq{} message-flow-device-birth-publish-dbirth-payload-seq",
            "NDATA": "topics-ndata-seq-num payloads-ndata-seq{}", "DDATA": "topics-ddata-seq-num payloads-ddata-seq{}",
            "DDEATH": "topics-ddeath-seq-num payloads-ddeath-seq{}"}


def no_sequence(forms, kind):
    sent(forms, kind)[-1]["payload"]["seq"] = None


def sequence_repeats(forms, kind):
    sent(forms, kind)[-1]["payload"]["seq"] -= 1


for each_kind, names in SEQUENCE.items():
    more = " payloads-ddeath-seq-number" if each_kind == "DDEATH" else ""
    plant(names.format("") + more + " payloads-sequence-num-always-included", each_kind)(no_sequence)
    plant(names.format("-inc") + " payloads-sequence-num-incrementing", each_kind)(sequence_repeats)


@plant("topics-nbirth-seq-num", 1)
@plant("payloads-nbirth-seq payloads-sequence-num-req-nbirth "
       "message-flow-edge-node-birth-publish-nbirth-payload-seq", 256)
@plant("payloads-nbirth-seq payloads-sequence-num-always-included", None)
def sequence_of_birth_is(forms, number):
    sent(forms, "NBIRTH")[0]["payload"]["seq"] = number


@plant("payloads-ddata-seq-inc payloads-sequence-num-incrementing topics-ddata-seq-num")
def sequence_goes_to_256(forms):
    next(form for form in sent(forms, "DDATA") if form["payload"]["seq"] == 0)["payload"]["seq"] = 256


@plant("topics-nbirth-timestamp payloads-nbirth-timestamp", "NBIRTH")
@plant("topics-dbirth-timestamp payloads-dbirth-timestamp", "DBIRTH")
@plant("topics-ndata-timestamp payloads-ndata-timestamp", "NDATA")
@plant("topics-ddata-timestamp payloads-ddata-timestamp", "DDATA")
@plant("payloads-ddeath-timestamp", "DDEATH")
def has_no_time(forms, kind):
    sent(forms, kind)[-1]["payload"]["timestamp"] = None


@plant("payloads-timestamp-in-UTC", HOUR_MS, name="messages carry local time")
@plant("payloads-timestamp-in-UTC", -13 * HOUR_MS, name="messages carry local time in the west")
def messages_are_off(forms, ms):
    for form in sent(forms, "DDATA"):
        form["payload"]["timestamp"] += ms


@plant("payloads-metric-timestamp-in-UTC", HOUR_MS, name="values carry local time")
@plant("payloads-metric-timestamp-in-UTC", -HOUR_MS, name="values carry local time in the west")
@plant("payloads-metric-timestamp-in-UTC", -1699000000000, name="values carry seconds")
def values_are_off(forms, ms):
    for form in sent(forms, "DDATA"):
        for each in form["payload"]["metrics"]:
            each["timestamp"] += ms


@plant("payloads-name-birth-data-requirement", "DDATA")
@plant("payloads-name-birth-data-requirement", "NBIRTH")
def value_without_time(forms, kind):
    sent(forms, kind)[0]["payload"]["metrics"][-1]["timestamp"] = None


@plant("topics-nbirth-metric-reqs operational-behavior-data-publish-nbirth gateway-data-from-births", "NBIRTH",
       POLLS_ALIAS)
@plant("topics-dbirth-metric-reqs operational-behavior-data-publish-dbirth gateway-data-from-births", "DBIRTH",
       FIRST_ALIAS)
def birth_lacks_metric(forms, kind, alias):
    birth = sent(forms, kind)[0]
    birth["payload"]["metrics"].remove(metric(birth, alias=alias))


BIRTHS = {"NBIRTH": "topics-nbirth-metrics operational-behavior-data-publish-nbirth-values",
          "DBIRTH": "topics-dbirth-metrics operational-behavior-data-publish-dbirth-values"}


@plant(BIRTHS["NBIRTH"], "NBIRTH", {"long_value": None})
@plant(BIRTHS["DBIRTH"], "DBIRTH", {"bytes_value": None})
@plant(BIRTHS["NBIRTH"].split()[1], "NBIRTH", {"is_null": True})
@plant(BIRTHS["DBIRTH"].split()[1], "DBIRTH", {"is_null": True})
@plant("payloads-metric-datatype-req topics-nbirth-metrics", "NBIRTH", {"datatype": None})
@plant("payloads-metric-datatype-req topics-dbirth-metrics", "DBIRTH", {"datatype": None})
@plant("payloads-metric-datatype-value-type", "DBIRTH", {"datatype": 1 << 32})
@plant("payloads-metric-datatype-value", "DBIRTH", {"datatype": 99})
@plant("payloads-name-requirement", "DBIRTH", {"name": None, "alias": None})
@plant("payloads-alias-birth-requirement", "DBIRTH", {"alias": None})
@plant("payloads-alias-birth-requirement topics-dbirth-metrics", "DBIRTH", {"name": None})
@plant("payloads-alias-uniqueness", "DBIRTH", {"alias": POLLS_ALIAS})
@plant("case-sensitivity-metric-names", "DBIRTH", {"name": "cOUNTER"})
@plant("gateway-quality-in-births", "DBIRTH", {"properties": None})
@plant("payloads-propertyset-quality-value-type", "DBIRTH",
       {"properties": [("Quality", {"type": 7, "int_value": 192})]})
@plant("payloads-propertyset-quality-value-value", "DBIRTH",
       {"properties": [("Quality", {"type": 3, "int_value": 191})]})
@plant("payloads-propertyset-quality-value-value", "DBIRTH",
       {"properties": [("Quality", {"type": 3, "long_value": 192})]})
@plant("payloads-metric-propertyvalue-type-req", "DBIRTH", {"properties": [("Quality", {"int_value": 192})]})
@plant("payloads-metric-propertyvalue-type-type", "DBIRTH",
       {"properties": [("Quality", {"type": 1 << 32, "int_value": 192})]})
@plant("payloads-metric-propertyvalue-type-value", "DBIRTH",
       {"properties": [("Quality", {"type": 16, "int_value": 192})]})
@plant("payloads-propertyset-keys-array-size payloads-propertyset-values-array-size", "DBIRTH",
       {"properties": [("Quality", {"type": 3, "int_value": 192}), ("Unit", None)]})
@plant("topics-nbirth-templates payloads-template-definition-nbirth-only payloads-template-version", "NBIRTH",
       {"datatype": 19, "long_value": None, "template_value": b""})
@plant("payloads-dataset-column-size payloads-template-dataset-value", "DBIRTH",
       {"datatype": 16, "bytes_value": None, "dataset_value": b""})
@plant("gateway-value-fits-datatype payloads-metric-datatype-value", "DBIRTH", {"datatype": 29})
@plant("gateway-value-fits-datatype payloads-metric-datatype-value", "NBIRTH",
       {"datatype": 7, "long_value": None, "bytes_value": b"1"})
@plant("gateway-null-when-not-good", "DBIRTH", {"bytes_value": None, "is_null": True})
@plant("gateway-null-when-not-good", "DBIRTH", {"properties": [("Quality", {"type": 3, "int_value": 0})]})
@plant("gateway-payload-strict message-flow-device-birth-publish-dbirth-payload", "DBIRTH", {"raw": b"\xA0\x06\x01"})
@plant("gateway-payload-strict message-flow-edge-node-birth-publish-nbirth-payload", "NBIRTH", {"raw": b"\x08\x01"})
@plant("gateway-payload-strict", "DBIRTH", {"name": b"M\xFCller"})
def metric_of_birth_is_changed(forms, kind, changes):
    last = sent(forms, kind)[0]["payload"]["metrics"][-1]
    last.update(changes)


@plant("gateway-payload-strict message-flow-edge-node-birth-publish-nbirth-payload", "NBIRTH")
@plant("gateway-payload-strict message-flow-device-birth-publish-dbirth-payload", "DBIRTH")
def payload_is_cut(forms, kind):
    sent(forms, kind)[0]["payload"]["raw"] = b"\x12\x7F"


@plant("topics-nbirth-rebirth-metric payloads-nbirth-rebirth-req operational-behavior-data-commands-rebirth-name",
       {"name": "Node Control/rebirth"})
@plant("topics-nbirth-rebirth-metric operational-behavior-data-commands-rebirth-datatype", {"datatype": 3})
@plant("topics-nbirth-rebirth-metric payloads-nbirth-rebirth-req operational-behavior-data-commands-rebirth-value",
       {"boolean_value": True})
@plant("operational-behavior-data-commands-rebirth-name-aliases", {"alias": 900})
def rebirth_is_changed(forms, changes):
    metric(sent(forms, "NBIRTH")[0], "Node Control/Rebirth").update(changes)


@plant("operational-behavior-data-publish-nbirth-order", "NBIRTH")
@plant("operational-behavior-data-publish-dbirth-order", "DBIRTH")
def birth_goes_back_in_time(forms, kind):
    sent(forms, kind)[0]["payload"]["metrics"][-1]["timestamp"] -= 5


@plant("payloads-metric-datatype-not-req gateway-data-without-datatype", {"datatype": 3})
@plant("payloads-alias-data-cmd-requirement gateway-data-alias-alone", {"name": "Counter"})
@plant("payloads-alias-data-cmd-requirement gateway-data-alias-alone", {"name": "Counter", "alias": None})
@plant("topics-dbirth-metric-reqs gateway-data-from-births", {"alias": 999})
@plant("gateway-value-fits-datatype payloads-metric-datatype-value", {"int_value": None, "long_value": 5})
@plant("gateway-quality-when-told", {"properties": [("Quality", {"type": 3, "int_value": 192})]})
@plant("gateway-null-when-not-good", {"int_value": None, "is_null": True})
def metric_of_data_is_changed(forms, changes):
    sent(forms, "DDATA")[2]["payload"]["metrics"][0].update(changes)


@plant("gateway-quality-when-told")
def return_to_good_is_not_told(forms):
    sent(forms, "DDATA")[4]["payload"]["metrics"][0]["properties"] = None


@plant("topics-ndata-payload", "NDATA")
@plant("topics-ddata-payload", "DDATA")
def data_is_empty(forms, kind):
    sent(forms, kind)[0]["payload"]["metrics"] = []


@plant("operational-behavior-data-publish-nbirth-change", "NDATA")
@plant("operational-behavior-data-publish-dbirth-change", "DDATA")
def data_repeats_itself(forms, kind):
    add_behind(forms, sent(forms, kind)[1], copy_of(sent(forms, kind)[1]))
    renumber(forms)


@plant("gateway-history-behind-births")
def history_in_birth(forms):
    metric(sent(forms, "DBIRTH", 2)[0], alias=FIRST_ALIAS)["is_historical"] = True


@plant("gateway-history-behind-births gateway-no-data-while-dead")
def history_before_birth(forms):
    birth = sent(forms, "DBIRTH", 2)[0]
    remove(forms, birth)
    add_behind(forms, sent(forms, "DDATA", 2)[0], birth)
    renumber(forms)


@plant("gateway-history-older-than-births")
def live_value_marked_as_history(forms):
    sent(forms, "DDATA", 1)[200]["payload"]["metrics"][0].update(is_historical=True, timestamp=sent(
        forms, "DDATA", 1)[-1]["t"])


@plant("gateway-history-oldest-first")
def history_goes_back(forms):
    sent(forms, "DDATA", 2)[2]["payload"]["metrics"][0]["timestamp"] -= 4000


@plant("gateway-live-never-back")
def history_is_not_marked(forms):
    sent(forms, "DDATA", 2)[0]["payload"]["metrics"][0]["is_historical"] = None


@plant("gateway-live-never-back")
def live_values_swap_places(forms):
    first, second = (sent(forms, "DDATA", 1)[index]["payload"] for index in (100, 101))
    first["metrics"], second["metrics"] = second["metrics"], first["metrics"]


@plant("gateway-nothing-missing")
def values_of_a_connection_are_lost(forms):
    remove(forms, *sent(forms, "DBIRTH", 3), *sent(forms, "DDATA", 3), *sent(forms, "DDATA", 4))


@plant("gateway-fence-qos", {"qos": 0})
@plant("gateway-fence-qos gateway-no-retained", {"retain": True})
def fence_is_changed(forms, changes):
    fences(forms)[0].update(changes)


@plant("gateway-fence-one-at-a-time")
def fence_before_the_last_was_answered(forms):
    remove(forms, next(form for form in packets(forms, "PUBACK", 1) if form["identifier"] == fences(forms)[0][
        "identifier"]))


@plant("gateway-fence-behind-data")
def data_is_never_fenced(forms):
    remove(forms, fences(forms, 2)[-1])


@plant("gateway-fence-overdue")
def goes_on_without_acknowledgment(forms):
    fence = fences(forms, 3)[-1]
    add_behind(forms, fence, later_copy(sent(forms, "DDATA", 3)[0], 40000))


def json_forms(forms):
    return [form for form in packets(forms, "PUBLISH") if form["topic"].startswith("plant/")]


@plant("gateway-json-delivery gateway-no-retained", {"retain": True})
@plant("gateway-json-delivery", {"qos": 0})
@plant("gateway-json-form", {"body": b'{"value": 1, "quality": "bad", "time": "2023"}'})
@plant("gateway-json-form", {"body": b'{"value": 1}'})
@plant("gateway-json-form", {"body": b"1"})
def json_is_changed(forms, changes):
    json_forms(forms)[0].update(changes)


def command_result(forms):
    aliases = [(form, form["payload"]["metrics"][0]["alias"]) for form in sent(forms, "NDATA")]
    return next(form for form, alias in aliases if alias == COMMAND_ALIASES["Name"])


@plant("gateway-command-answered")
def command_is_not_answered(forms):
    remove(forms, command_result(forms))
    renumber(forms)


@plant("gateway-command-answered", "Name", "Other")
@plant("gateway-command-result", "Result", "perhaps")
@plant("gateway-command-result", "Reason", "")
def result_is(forms, name, text):
    metric(command_result(forms), alias=COMMAND_ALIASES[name])["string_value"] = text
