// What the page of plc-sim does: redraws the state twice a second, and posts what is typed as commands.
"use strict";
const at = id => document.getElementById(id);
const rows = new Map();
let faults = [];

// What a browser would obey or hide stands as its number.
const shown = text => String(text).replace(/[\p{Cc}\p{Cf}\p{Zl}\p{Zp}\p{Cs}\p{Cn}]/gu,
                                           c => "\\u{" + c.codePointAt(0).toString(16) + "}");

async function command(text) {
  const answer = await fetch("command", {method: "POST", headers: {"X-Plc-Sim": "1"}, body: text});
  const lines = (await answer.text()).trim();
  at("message").textContent = lines === "ok" ? "" : shown(lines);
  refresh();
}

function cell(row, text) {
  const td = row.insertCell();
  td.textContent = shown(text);
  return td;
}

function makeRow(name, type) {
  const row = at("rows").insertRow();
  row.dataset.name = name;
  cell(row, name);
  cell(row, type);
  const value = cell(row, "");
  value.className = "value";
  const form = document.createElement("form");
  const input = document.createElement("input");
  input.size = 12;
  input.setAttribute("aria-label", "new value of " + shown(name));
  form.append(input);
  form.onsubmit = event => {
    event.preventDefault();
    command("set " + name + " " + input.value);
    input.value = "";
  };
  row.insertCell().append(form);
  rows.set(name, {row, value, text: null});
}

function showRows(elements) {
  const wanted = new Set(elements.map(element => element.name));
  for (const [name, entry] of rows) {
    if (!wanted.has(name)) { entry.row.remove(); rows.delete(name); }
  }
  for (const {name, type, text} of elements) {
    if (!rows.has(name)) makeRow(name, type);
    const entry = rows.get(name);
    entry.row.className = entry.text !== null && entry.text !== text ? "changed" : "";
    if (entry.text !== text) entry.value.textContent = shown(text);
    entry.text = text;
  }
}

function showFaults(known, armed) {
  if (faults.length === 0) {
    faults = known;
    for (const fault of known) at("fault-name").add(new Option(fault.name, fault.name));
    showHelp();
  }
  at("armed").replaceChildren(...armed.map(text => {
    const item = document.createElement("li");
    item.textContent = text;
    return item;
  }));
}

function showHelp() {
  const fault = faults.find(known => known.name === at("fault-name").value);
  at("fault-arguments").placeholder = fault.arguments || "no arguments";
  at("fault-help").textContent = fault.help;
}

function showCounts(counts) {
  at("violations").textContent = counts.violations === 0 ? "no violation" : counts.violations + " violations";
  at("violations").className = counts.violations === 0 ? "" : "bad";
  at("counts").replaceChildren();
  for (const [name, count] of Object.entries(counts)) {
    const row = at("counts").insertRow();
    cell(row, name);
    cell(row, count);
  }
}

async function refresh() {
  try {
    const state = await (await fetch("state?" + encodeURIComponent(at("filter").value))).json();
    at("link").textContent = "";
    at("more").textContent = state.more ? "only the first " + state.elements.length + " are shown" : "";
    showRows(state.elements);
    showFaults(state.faults, state.armed);
    showCounts(state.counts);
  } catch (error) {
    at("link").textContent = "has ended";
  }
}

at("fault").onsubmit = event => {
  event.preventDefault();
  command("fault " + at("fault-name").value + " " + at("fault-arguments").value);
};
at("fault-name").onchange = showHelp;
at("clear").onclick = () => command("fault clear");
at("filter").oninput = refresh;
refresh();
setInterval(refresh, 500);
