"""Violations to plant into the synthetic session, each with the identifiers under which it must be found."""
from dataclasses import dataclass

import synthetic

PLANTS = []


@dataclass
class Plant:
    name: str
    identifiers: list
    change: object  # of the forms, in place


def plant(identifiers, *arguments, name=""):
    """Registers a change of the forms, with these arguments behind them."""
    def register(change):
        called = name or " ".join([change.__name__, *(str(argument) for argument in arguments)])
        PLANTS.append(Plant(called, identifiers.split(), lambda forms: change(forms, *arguments)))
        return change
    return register


def sent(forms, kind="", conn=None):
    """What the node published of that kind, as far as it is a payload."""
    return [form for form in forms if form["what"] == "PUBLISH" and form["dir"] == "in" and "payload" in form
            and (not kind or form["topic"].split("/")[2] == kind) and conn in (None, form["conn"])]


def packets(forms, what, conn=None):
    return [form for form in forms if form["what"] == what and conn in (None, form["conn"])]


def fences(forms, conn=None):
    return [form for form in packets(forms, "PUBLISH", conn) if form["topic"] == synthetic.FENCE]


def metric(form, name=None, alias=None):
    return next(each for each in form["payload"]["metrics"] if name is not None and each.get("name") == name
                or alias is not None and each.get("alias") == alias)


def note(forms, event):
    return next(form for form in forms if form["what"] == "note" and form["event"] == event)


def add_behind(forms, place, *added):
    at = next(index for index, form in enumerate(forms) if form is place) + 1
    forms[at:at] = added


def add_before(forms, place, *added):
    at = next(index for index, form in enumerate(forms) if form is place)
    forms[at:at] = added


def remove(forms, *gone):
    forms[:] = [form for form in forms if all(form is not each for each in gone)]


def renumber(forms):
    """Sequence numbers as they have to be."""
    for conn in {form["conn"] for form in forms}:
        number = 0
        for form in sent(forms, conn=conn):
            if form["topic"].split("/")[2] == "NBIRTH":
                number = 0
            if "seq" in form["payload"]:
                form["payload"]["seq"] = number
                number = (number + 1) % 256


def copy_of(form, **changes):
    """Of a publication, with its payload."""
    payload = {**form["payload"], "metrics": [dict(each) for each in form["payload"]["metrics"]]}
    return {**form, "payload": payload, **changes}


def later_copy(form, ms):
    """The same message so much later, with the next value."""
    copy = copy_of(form, t=form["t"] + ms)
    copy["payload"]["timestamp"] += ms
    for each in copy["payload"]["metrics"]:
        each["timestamp"] += ms
        each["int_value"] = each.get("int_value", 0) + 1000
    return copy
