// What the page of plc-sim does: redraws the state twice a second, and posts what is typed as commands.
"use strict";
const at = id => document.getElementById(id);
const rows = new Map();
let faults = [];
let violations = 0;
let hasEnded = false;

// What a browser would obey or hide stands as its number.
const shown = text => String(text).replace(/[\p{Cc}\p{Cf}\p{Zl}\p{Zp}\p{Cs}\p{Cn}]/gu,
                                           c => "\\u{" + c.codePointAt(0).toString(16) + "}");
const plural = (count, thing) => count + " " + thing + (count === 1 ? "" : "s");

// Only what differs is touched: what somebody selects or has read to him stays.
function setText(element, text) {
  if (element.textContent !== text) element.textContent = text;
}

function say(text, isBad) {
  setText(at("message"), shown(text));
  at("message").className = isBad ? "bad" : "";
}

// Whether it was done; what was wrong stands in the strip.
async function command(text, done) {
  let answer;
  try {
    answer = (await (await fetch("command", {method: "POST", headers: {"X-Plc-Sim": "1"}, body: text})).text()).trim();
  } catch (error) {
    answer = "error: plc-sim does not answer";
  }
  const isDone = answer === "ok";
  say(isDone ? done : answer, !isDone);
  refresh();
  return isDone;
}

function make(name, text, attributes) {
  const element = document.createElement(name);
  element.textContent = text;
  for (const [key, value] of Object.entries(attributes)) element.setAttribute(key, value);
  return element;
}

function cell(row, text) {
  const td = row.insertCell();
  td.setAttribute("role", "cell");
  td.textContent = shown(text);
  return td;
}

// The row's own name and no other: between quotes its blanks and quotes count too.
const escapes = {"\n": "\\n", "\r": "\\r", "\t": "\\t", "\0": "\\x00", "\"": "\\\"", "\\": "\\\\"};
const quoted = name => "\"" + name.replace(/[\n\r\t\0"\\]/g, c => escapes[c]) + "\"";
const write = (name, value) => command("set " + quoted(name) + " " + value, "written: " + name + " = " + value);

// A flag has a button for its other value, everything else a field.
function makeControls(name, type, entry) {
  const form = make("form", "", {autocomplete: "off"});
  if (type === "BOOL") {
    entry.button = make("button", "", {});
    form.append(entry.button);
    form.onsubmit = event => {
      event.preventDefault();
      write(name, entry.text === "true" ? "false" : "true");
    };
    return form;
  }
  const input = make("input", "", {size: 10, autocapitalize: "off", spellcheck: "false",
                                   "aria-label": "new value of " + shown(name)});
  form.append(input, make("button", "write", {"aria-label": "write " + shown(name)}));
  form.onsubmit = async event => {
    event.preventDefault();
    const typed = input.value;
    input.select();  // what is typed next takes its place
    const isDone = await write(name, typed);
    input.setAttribute("aria-invalid", String(!isDone));
    if (isDone) {
      if (input.value === typed) input.value = "";
      input.removeAttribute("aria-describedby");
    } else {
      input.setAttribute("aria-describedby", "message");
      input.focus();
    }
  };
  return form;
}

function makeRow(name, type) {
  const row = at("rows").insertRow();
  row.dataset.name = name;
  row.setAttribute("role", "row");
  cell(row, name);
  cell(row, type);
  const entry = {row, value: cell(row, ""), text: null, button: null};
  entry.value.className = "value";
  cell(row, "").append(makeControls(name, type, entry));
  rows.set(name, entry);
  return entry;
}

function showValue(name, entry, text) {
  entry.row.className = entry.text !== null && entry.text !== text ? "changed" : "";
  entry.text = text;
  setText(entry.value, shown(text));
  if (entry.button) {
    const other = text === "true" ? "false" : "true";
    setText(entry.button, "write " + other);
    entry.button.setAttribute("aria-label", "write " + other + " to " + shown(name));
  }
}

function showRows(state) {
  const wanted = new Set(state.elements.map(element => element.name));
  for (const [name, entry] of rows) {
    if (!wanted.has(name)) { entry.row.remove(); rows.delete(name); }
  }
  for (const {name, type, text} of state.elements) showValue(name, rows.get(name) || makeRow(name, type), text);
  const part = at("filter").value;
  setText(at("more"), state.more ? "the first " + state.elements.length + " are shown: type a part of a name"
                      : state.elements.length > 0 ? ""
                      : part === "" ? "there are no variables: plc-sim answers as a capture says"
                      : "no name contains '" + shown(part) + "'");
}

function showFaults(known, armed) {
  if (faults.length === 0) {
    faults = known;
    for (const fault of known) at("fault-name").add(new Option(fault.name, fault.name));
    showHelp();
  }
  setText(at("armed-count"), armed.length === 0 ? "no fault is armed" : plural(armed.length, "fault") + " armed");
  at("clear").hidden = armed.length === 0;
  const items = at("armed").children;
  while (items.length > armed.length) items[items.length - 1].remove();
  armed.forEach((text, i) => items[i] ? setText(items[i], text) : at("armed").append(make("li", text, {})));
}

function showHelp() {
  const fault = faults.find(known => known.name === at("fault-name").value);
  at("fault-arguments").placeholder = fault.arguments || "none";
  at("fault-help").textContent = fault.name + ": " + fault.help + ".";
}

function showCounts(counts, lastViolation) {
  if (counts.violations > violations) say("violation: " + lastViolation, true);
  violations = counts.violations;
  setText(at("violations"), violations === 0 ? "no violation" : plural(violations, "violation"));
  at("violations").className = violations === 0 ? "" : "bad";
  for (const [name, count] of Object.entries(counts)) {
    const id = "count-" + name.replaceAll(" ", "-");
    if (!at(id)) at("counts").append(make("dt", name, {}), make("dd", "", {id}));
    setText(at(id), String(count));
  }
}

function showHead(state) {
  const from = state.replay ? "answers of " + state.replay : plural(state.files.length, "tag file") + ": " + state.files.join(", ");
  setText(at("listening"), "listening on " + state.listening);
  setText(at("files"), shown(from));
  document.title = "plc-sim " + state.listening;
}

// What is shown stays on the page, with the time that it is of.
function showEnd() {
  if (hasEnded) return;
  hasEnded = true;
  setText(at("link"), "plc-sim does not answer since " + new Date().toLocaleTimeString());
  document.body.className = "ended";
}

async function refresh() {
  try {
    const state = await (await fetch("state?" + encodeURIComponent(at("filter").value))).json();
    hasEnded = false;
    setText(at("link"), "");
    document.body.className = "";
    showHead(state);
    showRows(state);
    showFaults(state.faults, state.armed);
    showCounts(state.counts, state.last_violation);
  } catch (error) {
    showEnd();
  }
}

at("fault").onsubmit = event => {
  event.preventDefault();
  const text = (at("fault-name").value + " " + at("fault-arguments").value).trim();
  command("fault " + text, "armed: " + text);
};
at("fault-name").onchange = showHelp;
at("clear").onclick = () => command("fault clear", "all faults are disarmed");
at("filter").oninput = refresh;

// Where there is room, what is needed less often is open.
const isWide = matchMedia("(min-width: 60rem)");
const openPanel = () => { at("panel").open = isWide.matches; };
isWide.onchange = openPanel;
openPanel();
refresh();
setInterval(refresh, 500);
