"""Rules about single metrics: names and aliases, times, datatypes with their values, properties."""
import datatypes
from rulebook import AHEAD_MS, CLOCK_MS, FIRST_MS, properties_of, rule

QUALITIES = (0, 192, 500)
KINDS = ("NBIRTH", "DBIRTH", "NDATA", "DDATA")


def metrics_of(node, *kinds):
    for message in node.messages(*(kinds or KINDS)):
        for index, metric in enumerate(message.metrics()):
            yield message, metric, message.known[index] if message.is_data() else metric


@rule
def named_or_alias(node):
    for message, metric, _ in metrics_of(node):
        fine = metric.name is not None or metric.alias is not None
        yield message.n, fine, "a metric has neither name nor alias"


@rule
def alias_alone_in_data(node):
    """Where the metric's birth gave it an alias, or where it cannot be told which one it is."""
    for message, metric, known in metrics_of(node, "NDATA", "DDATA"):
        if known is None or known.alias is not None:
            fine = metric.alias is not None and metric.name is None
            yield message.n, fine, f"{metric.label()} in {message.kind} stands with its name"


@rule
def metric_has_time(node):
    for message, metric, _ in metrics_of(node):
        yield message.n, metric.timestamp is not None, f"{metric.label()} has no time"


@rule
def metric_time_is_utc(node):
    """Values of births may be as old as they like, and history too."""
    for message, metric, _ in metrics_of(node):
        if metric.timestamp is None or message.payload.timestamp is None:
            continue
        age = message.payload.timestamp - metric.timestamp
        oldest = CLOCK_MS if message.is_data() and not metric.is_historical else float("inf")
        fine = metric.timestamp >= FIRST_MS and -AHEAD_MS <= age <= oldest
        yield message.n, fine, f"the time of {metric.label()} is {age / 1000:.0f} s before the message's"


@rule
def datatype_in_births(node):
    for message, metric, _ in metrics_of(node, "NBIRTH", "DBIRTH"):
        yield message.n, metric.datatype is not None, f"{metric.label()} has no datatype"


@rule
def no_datatype_in_data(node):
    for message, metric, _ in metrics_of(node, "NDATA", "DDATA"):
        yield message.n, metric.datatype is None, f"{metric.label()} has a datatype in {message.kind}"


@rule
def datatype_is_uint32(node):
    for message in node.messages(*KINDS):
        wrong = [text for text in message.findings if "datatype of" in text]
        yield message.n, not wrong, "; ".join(wrong)


@rule
def datatype_is_known(node):
    for message, metric, _ in metrics_of(node):
        if metric.datatype is not None:
            fine = metric.datatype in datatypes.METRIC_TYPES
            yield message.n, fine, f"{metric.label()} has datatype {metric.datatype}, which does not exist"


@rule
def value_fits_datatype(node):
    """Of data by the datatype of its birth."""
    for message, metric, known in metrics_of(node):
        code = metric.datatype if metric.datatype is not None else known.datatype if known else None
        if code in datatypes.VALUE_FIELDS and metric.value_field is not None:
            problem = datatypes.value_problem(code, metric.value_field, metric.value)
            yield message.n, not problem, f"{metric.label()}: {problem}"


@rule
def properties_are_paired(node):
    for message in node.messages(*KINDS):
        for metric, properties in properties_of(message):
            fine = len(properties.keys) == len(properties.values)
            yield (message.n, fine, f"{metric.label()} has {len(properties.keys)} names of properties "
                                    f"and {len(properties.values)} values")


def property_values(node, *kinds):
    for message in node.messages(*(kinds or KINDS)):
        for metric, properties in properties_of(message):
            for value in properties.values:
                yield message, metric, value


@rule
def property_type_in_births(node):
    for message, metric, value in property_values(node, "NBIRTH", "DBIRTH"):
        yield message.n, value.type is not None, f"a property of {metric.label()} has no type"


@rule
def property_type_is_uint32(node):
    for message in node.messages(*KINDS):
        if properties_of(message):
            wrong = [text for text in message.findings if text.startswith("type of values of")]
            yield message.n, not wrong, "; ".join(wrong)


@rule
def property_type_is_known(node):
    for message, metric, value in property_values(node):
        if value.type is not None:
            fine = value.type in datatypes.PROPERTY_TYPES
            yield message.n, fine, f"a property of {metric.label()} has type {value.type}"


def qualities(node):
    for message in node.messages(*KINDS):
        for metric, properties in properties_of(message):
            quality = properties.get("Quality")
            if quality is not None:
                yield message, metric, quality


@rule
def quality_is_int32(node):
    for message, metric, quality in qualities(node):
        yield message.n, quality.type == datatypes.INT32, f"Quality of {metric.label()} has type {quality.type}"


@rule
def quality_is_a_code(node):
    for message, metric, quality in qualities(node):
        fine = quality.value_field == "int_value" and quality.value in QUALITIES
        yield message.n, fine, f"Quality of {metric.label()} is {quality.value} in {quality.value_field}"


@rule
def no_template(node):
    for message in node.messages(*KINDS):
        used = [metric.label() for metric in message.metrics()
                if metric.datatype == datatypes.TEMPLATE or metric.value_field == "template_value"]
        yield message.n, not used, f"{used[:1]} is a template, which this node never publishes"


@rule
def no_dataset(node):
    for message in node.messages(*KINDS):
        used = [metric.label() for metric in message.metrics()
                if metric.datatype == datatypes.DATASET or metric.value_field == "dataset_value"]
        yield message.n, not used, f"{used[:1]} is a data set, which this node never publishes"
