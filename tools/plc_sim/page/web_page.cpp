// The page and what it asks for.
#include "tools/plc_sim/page/web_page.h"

#include <nlohmann/json.hpp>

#include "tools/plc_sim/variables/listing.h"

namespace plc_sim {
namespace {

// What a browser redraws twice a second without effort; the page says when there is more.
constexpr size_t kMaxRows = 500;

constexpr const char* kPage = R"page(<!doctype html>
<html lang="en">
<meta charset="utf-8">
<meta name="viewport" content="width=device-width">
<title>plc-sim</title>
<style>
 body { font: 14px/1.4 system-ui, sans-serif; margin: 1.5rem; color: #1c2733; background: #fafbfc; }
 h1 { font-size: 1.2rem; margin: 0 0 1rem; }
 main { display: grid; grid-template-columns: minmax(0, 3fr) minmax(16rem, 1fr); gap: 2rem; }
 table { border-collapse: collapse; width: 100%; }
 th, td { text-align: left; padding: .2rem .6rem; border-bottom: 1px solid #dfe5ea; }
 td.value { font-family: ui-monospace, monospace; }
 tr.changed td.value { background: #fff3bf; }
 input, select, button { font: inherit; padding: .15rem .4rem; }
 #message { min-height: 1.4em; color: #b42318; }
 #violations.bad { color: #b42318; font-weight: bold; }
</style>
<h1>plc-sim <small id="link"></small></h1>
<main>
<section>
 <p><input id="filter" placeholder="part of a name" aria-label="filter"> <span id="more"></span></p>
 <table><thead><tr><th>variable<th>type<th>value<th>new value</thead><tbody id="rows"></tbody></table>
</section>
<aside>
 <p id="message" role="status"></p>
 <h2>Faults</h2>
 <form id="fault"><select id="fault-name" aria-label="fault"></select>
  <input id="fault-arguments" size="16" placeholder="arguments" aria-label="arguments">
  <button>switch on</button> <button type="button" id="clear">clear all</button></form>
 <p id="fault-help"></p>
 <ul id="armed"></ul>
 <h2>Counts</h2>
 <p id="violations"></p>
 <table><tbody id="counts"></tbody></table>
</aside>
</main>
<script>
"use strict";
const at = id => document.getElementById(id);
const rows = new Map();
let faults = [];

async function command(text) {
  const answer = await fetch("command", {method: "POST", headers: {"X-Plc-Sim": "1"}, body: text});
  const lines = (await answer.text()).trim();
  at("message").textContent = lines === "ok" ? "" : lines;
  refresh();
}

function cell(row, text) {
  const td = row.insertCell();
  td.textContent = text;
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
  input.setAttribute("aria-label", "new value of " + name);
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
    if (entry.text !== text) entry.value.textContent = text;
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
</script>
</html>
)page";

HttpAnswer plain(int status, const std::string& text) { return {status, "text/plain; charset=utf-8", text}; }

}  // namespace

HttpAnswer WebPage::answer(const HttpRequest& request) const {
  if (request.method == "GET" && request.path == "/") {
    return {200, "text/html; charset=utf-8", kPage};
  }
  if (request.method == "GET" && request.path == "/state") {
    return {200, "application/json", state(request.query)};
  }
  if (request.path == "/command") {
    return request.method == "POST" ? command(request) : plain(405, "commands are posted\n");
  }
  return plain(404, "there is nothing here\n");
}

HttpAnswer WebPage::command(const HttpRequest& request) const {
  if (!request.has_own_header) {
    return plain(403, "commands come from the page itself\n");
  }
  const std::string line = request.body.substr(0, request.body.find('\n'));
  const bool is_allowed = line.rfind("set ", 0) == 0 || line.rfind("fault ", 0) == 0;
  return is_allowed ? plain(200, run_command_(line)) : plain(403, "only set and fault can be used here\n");
}

std::string WebPage::state(const std::string& part) const {
  nlohmann::ordered_json json;
  const Listed listed = list_elements(store_, part, kMaxRows);
  json["elements"] = nlohmann::ordered_json::array();
  for (const ListedElement& element : listed.elements) {
    json["elements"].push_back({{"name", element.name}, {"type", element.type}, {"text", element.value}});
  }
  json["more"] = listed.has_more;
  const Tally::Counts& counts = tally_.counts;
  json["counts"] = {{"connections", counts.connections},
                    {"requests", counts.requests},
                    {"violations", counts.violations},
                    {"refused", counts.refused},
                    {"outside", counts.outside}};
  json["faults"] = nlohmann::ordered_json::array();
  for (const FaultInfo& info : known_faults()) {
    json["faults"].push_back({{"name", info.name}, {"arguments", info.arguments}, {"help", info.help}});
    if (faults_.count_of(info.kind) > 0) {
      json["counts"][std::string("fault ") + info.name] = faults_.count_of(info.kind);
    }
  }
  json["armed"] = nlohmann::ordered_json::array();
  for (const Fault& fault : faults_.armed()) {
    json["armed"].push_back(describe(fault));
  }
  return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace plc_sim
