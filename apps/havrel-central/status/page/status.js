// The live status page: one WebSocket to the Central, JSON state messages in, change requests
// out. Every text from the Central goes into the page as text, never as markup.
"use strict";

const MONITOR_KEPT = 200;
const LOG_KEPT = 100;

const $ = (id) => document.getElementById(id);
const monitorEntries = [];  // oldest first
let lastMonitorSeq = 0;
let lastLogSeq = 0;
let paused = false;
let socket = null;
let nextRequestId = 1;
let clockRunning = false;
let history = [];

function element(tag, text, className) {
  const node = document.createElement(tag);
  if (text !== undefined) node.textContent = String(text);
  if (className) node.className = className;
  return node;
}

function showError(text) {
  const box = $("error");
  box.textContent = text;
  box.hidden = false;
  clearTimeout(showError.timer);
  showError.timer = setTimeout(() => { box.hidden = true; }, 4000);
}

function renderClients(clients) {
  const body = $("clients");
  body.replaceChildren();
  if (clients.length === 0) {
    const row = element("tr", undefined, "empty");
    const cell = element("td", "no client connected");
    cell.colSpan = 6;
    row.append(cell);
    body.append(row);
    return;
  }
  for (const client of clients) {
    const row = element("tr");
    row.dataset.name = client.name;
    const light = element("td");
    light.append(element("span", undefined, "indicator" + (client.transmitting ? " active" : "")));
    light.title = client.transmitting ? "transmitting" : "quiet";
    const state = element("td", client.state, "state-" + client.state);
    if (client.reason) state.title = client.reason;
    if (client.reason && client.state === "refused") state.textContent = "refused: " + client.reason;
    row.append(light, element("td", client.name || "(no name)", "client-name"), element("td", client.product),
               element("td", client.transport), element("td", client.apiVersion), state);
    body.append(row);
  }
}

function drawPlot() {
  const canvas = $("plot");
  const width = canvas.width = canvas.clientWidth || 600;
  const height = canvas.height = canvas.clientHeight || 110;
  const g = canvas.getContext("2d");
  g.clearRect(0, 0, width, height);
  const top = Math.max(10, ...history);
  g.strokeStyle = "#2d333d";
  g.fillStyle = "#8a93a1";
  g.font = "10px sans-serif";
  for (const fraction of [0.5, 1]) {
    const y = height - 14 - (height - 24) * fraction;
    g.beginPath(); g.moveTo(0, y); g.lineTo(width, y); g.stroke();
    g.fillText(String(Math.round(top * fraction)), 4, y - 2);
  }
  g.fillText("−60 s", 4, height - 2);
  g.fillText("now", width - 24, height - 2);
  if (history.length < 2) return;
  const step = width / 59;
  const x0 = width - step * (history.length - 1);
  g.beginPath();
  history.forEach((value, index) => {
    const x = x0 + index * step;
    const y = height - 14 - (height - 24) * (value / top);
    if (index === 0) g.moveTo(x, y); else g.lineTo(x, y);
  });
  g.strokeStyle = "#4fb3ff";
  g.lineWidth = 2;
  g.stroke();
}

function renderOutputs(outputs, control) {
  const list = $("outputs");
  list.replaceChildren();
  for (const output of outputs) {
    const item = element("li");
    item.append(element("span", output.kind, "kind"), element("span", output.name));
    const state = element("span", output.on ? "on" : "off", "badge " + (output.on ? "on" : "off"));
    item.append(state);
    if (control && output.switchable) {
      const button = element("button", output.on ? "turn off" : "turn on");
      button.addEventListener("click", () => request({ op: "setOutput", name: output.name, on: !output.on }));
      item.append(button);
    }
    list.append(item);
  }
}

// Newest first; each item is its texts joined by two spaces.
function renderList(id, items, texts, emptyText) {
  const list = $(id);
  const rows = items.slice().reverse().map((item) => element("li", texts(item).join("  ")));
  list.replaceChildren(...(rows.length ? rows : [element("li", emptyText, "empty")]));
}

function renderClock(clock, control) {
  $("clock-source").textContent = clock.source;
  $("clock-tempo").textContent = clock.tempo > 0 ? clock.tempo.toFixed(1) + " BPM" : "—";
  $("clock-position").textContent = clock.bar + ":" + clock.beat + ":" + clock.division;
  $("clock-running").textContent = clock.running ? "running" : "stopped";
  clockRunning = clock.running;
  $("clock-toggle").textContent = clock.running ? "pause" : "start";
  $("clock-controls").hidden = !(control && clock.controllable);
  $("clock-hand-back").hidden = !(control && clock.canUseInternal);
}

function monitorRow(entry) {
  const row = element("tr");
  row.dataset.kind = entry.kind;
  row.append(element("td", entry.time), element("td", entry.endpoint), element("td", entry.kind),
             element("td", entry.channel > 0 ? entry.channel : ""), element("td", entry.values, "values"));
  return row;
}

function renderMonitor() {
  if (paused) return;
  const kind = $("monitor-kind").value;
  const body = $("monitor");
  const rows = [];
  for (let i = monitorEntries.length - 1; i >= 0; i--) {
    if (!kind || monitorEntries[i].kind === kind) rows.push(monitorRow(monitorEntries[i]));
  }
  body.replaceChildren(...rows);
  $("monitor-count").textContent = rows.length + " shown";
}

function addLog(lines, full) {
  const pre = $("log");
  if (full) pre.textContent = "";
  let text = pre.textContent;
  for (const entry of lines) {
    if (entry.seq <= lastLogSeq) continue;
    lastLogSeq = entry.seq;
    text += entry.time + "  " + entry.line + "\n";
  }
  const kept = text.split("\n");
  if (kept.length > LOG_KEPT + 1) text = kept.slice(kept.length - LOG_KEPT - 1).join("\n");
  const atBottom = pre.scrollTop + pre.clientHeight >= pre.scrollHeight - 4;
  pre.textContent = text;
  if (atBottom) pre.scrollTop = pre.scrollHeight;
}

function applyState(state) {
  $("mode").textContent = state.control ? "changes allowed" : "read-only";
  renderClients(state.clients);
  $("rate").textContent = state.throughput.rate;
  $("last").textContent = state.throughput.last || "—";
  $("received-dropped").textContent = state.throughput.receivedDropped || 0;
  $("monitor-dropped").textContent = state.throughput.monitorDropped || 0;
  $("log-dropped").textContent = state.throughput.logDropped || 0;
  history = state.throughput.history.concat([state.throughput.rate]).slice(-60);
  drawPlot();
  renderOutputs(state.outputs, state.control);
  renderClock(state.clock, state.control);
  renderSequences(state.sequencer, state.control);
  renderList("alerts", state.alerts || [], (a) => [a.time, a.message, a.text], "no alert");
  renderList("files", state.files || [], (f) => [f.time, f.name, f.size + " bytes", "from " + (f.client || "?")],
             "no file received");
  if (state.full) { monitorEntries.length = 0; lastMonitorSeq = 0; lastLogSeq = 0; }
  for (const entry of state.monitor) {
    if (entry.seq <= lastMonitorSeq) continue;  // already had it from a full state
    lastMonitorSeq = entry.seq;
    monitorEntries.push(entry);
  }
  if (monitorEntries.length > MONITOR_KEPT) monitorEntries.splice(0, monitorEntries.length - MONITOR_KEPT);
  renderMonitor();
  addLog(state.log, state.full);
}

// The sequences as rows of steps with the cursor; with changes allowed, a click turns a step on or
// off, a right click sets its value and note, and each row has its start/stop, length and note
// length. The rows are rebuilt on each state: they are small.
function renderSequences(sequencer, control) {
  const rows = $("sequences");
  rows.replaceChildren();
  $("sequences-controls").hidden = !control || !sequencer;
  if (!sequencer) { rows.append(element("p", "no sequences document")); return; }
  const edit = (change) => request(Object.assign({ op: "editSequences" }, change));
  sequencer.sequences.forEach((row, index) => {
    const head = element("div", undefined, "controls");
    head.append(element("span", (index + 1) + (row.isNote ? " notes" : " controller") +
                        (row.running ? " · running" : " · stopped")));
    if (control) {
      const toggle = element("button", row.running ? "stop" : "start");
      toggle.addEventListener("click", () => edit({ action: "setRunning", sequence: index, running: !row.running }));
      const length = element("input");
      length.type = "number"; length.min = 1; length.max = 256; length.value = row.length;
      length.addEventListener("change", () => edit({ action: "setLength", sequence: index, length: Number(length.value) }));
      const noteLength = element("input");
      noteLength.type = "number"; noteLength.min = 1; noteLength.max = 96; noteLength.value = row.noteLength;
      noteLength.title = "note length in ticks";
      noteLength.addEventListener("change",
        () => edit({ action: "setNoteLength", sequence: index, noteLength: Number(noteLength.value) }));
      const remove = element("button", "remove");
      remove.addEventListener("click", () => edit({ action: "remove", sequence: index }));
      head.append(toggle, element("span", "length"), length, element("span", "note length"), noteLength, remove);
    }
    const steps = element("div", undefined, "steps");
    row.steps.forEach((step, stepIndex) => {
      const cell = element("button", row.isNote ? step.note : step.value,
                           "step" + (step.value > 0 ? " on" : "") + (row.running && stepIndex === row.position ? " cursor" : ""));
      cell.title = "value " + step.value + (row.isNote ? ", note " + step.note : "");
      cell.disabled = !control;
      cell.addEventListener("click",
        () => edit({ action: "setStep", sequence: index, step: stepIndex, value: step.value > 0 ? 0 : 100 }));
      cell.addEventListener("contextmenu", (event) => {
        event.preventDefault();
        const answer = prompt("value (0-127) and note (0-127)", step.value + " " + step.note);
        if (answer === null) return;
        const [value, note] = answer.trim().split(/\s+/).map(Number);
        edit({ action: "setStep", sequence: index, step: stepIndex, value: value, note: note });
      });
      steps.append(cell);
    });
    rows.append(head, steps);
  });
  const arp = $("arpeggiator");
  arp.replaceChildren();
  if (sequencer.arpeggiator) {
    arp.append(element("div", "arpeggiator: " + JSON.stringify(sequencer.arpeggiator) +
                              " · held " + (sequencer.held.join(" ") || "none")));
    if (control) {
      const change = element("button", "edit the arpeggiator");
      change.addEventListener("click", () => {
        const answer = prompt("arpeggiator settings (JSON)", JSON.stringify(sequencer.arpeggiator));
        if (answer === null) return;
        try { edit({ action: "setArpeggiator", settings: JSON.parse(answer) }); } catch (e) { showError(String(e)); }
      });
      arp.append(change);
    }
  }
}

function request(body) {
  if (!socket || socket.readyState !== WebSocket.OPEN) return;
  body.id = nextRequestId++;
  socket.send(JSON.stringify(body));
}

function connect() {
  socket = new WebSocket("ws://" + location.host + "/ws");
  socket.addEventListener("open", () => {
    $("connection").textContent = "live";
    $("connection").className = "badge on";
  });
  socket.addEventListener("message", (event) => {
    let message;
    try { message = JSON.parse(event.data); } catch (e) { return; }
    if (message.type === "state") applyState(message);
    else if (message.type === "reply" && !message.ok) showError(message.error);
  });
  socket.addEventListener("close", () => {
    $("connection").textContent = "disconnected — retrying";
    $("connection").className = "badge off";
    setTimeout(connect, 1000);
  });
}

$("monitor-pause").addEventListener("click", () => {
  paused = !paused;
  $("monitor-pause").textContent = paused ? "resume" : "pause";
  renderMonitor();
});
$("monitor-kind").addEventListener("change", () => renderMonitor());
$("clock-toggle").addEventListener("click", () => request({ op: "setClockRunning", running: !clockRunning }));
$("sequence-add").addEventListener("click", () => request({ op: "editSequences", action: "add" }));
$("clock-use-internal").addEventListener("click", () => request({ op: "useInternalClock" }));
$("clock-set-tempo").addEventListener("click", () => request({ op: "setTempo", bpm: Number($("clock-bpm").value) }));
window.addEventListener("resize", drawPlot);
connect();
