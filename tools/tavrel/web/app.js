// The live page of `tavrel serve`: one stream of server-sent events, "state" with everything the
// server keeps, then "request" and "recording" as they happen. History is bounded here as in the
// server, so the page can stay open for hours.
"use strict";

const MAX_ROWS = 200;
const requests = [];                 // newest last
const recordings = new Map();        // url -> recording
let source = null;
let retryTimer = null;

function el(tag, className, text) {
  const node = document.createElement(tag);
  if (className) node.className = className;
  if (text !== undefined) node.textContent = text;
  return node;
}

function clock(ms) {
  return new Date(ms).toLocaleTimeString([], { hour12: false });
}

function sessionTime(ms) {
  const tenths = Math.round(ms / 100);
  const sign = tenths < 0 ? "-" : "";
  const abs = Math.abs(tenths);
  const minutes = Math.floor(abs / 600);
  const seconds = ((abs % 600) / 10).toFixed(1).padStart(4, "0");
  return sign + minutes + ":" + seconds;
}

function renderRequests() {
  const body = document.querySelector("#requests tbody");
  body.replaceChildren();
  for (let i = requests.length - 1; i >= 0; --i) {
    const r = requests[i];
    const row = el("tr");
    row.append(el("td", "", clock(r.time)), el("td", "", r.what), el("td", "", r.path),
               el("td", r.ok ? "ok" : "no", String(r.status)), el("td", r.ok ? "ok" : "no", r.outcome),
               el("td", "num", String(r.bytes)));
    body.append(row);
  }
  const uploads = requests.filter((r) => r.what === "upload").length;
  document.getElementById("counts").textContent =
      requests.length + " requests shown (" + uploads + " uploads)";
}

function renderRecording(r) {
  const card = el("div", "recording");
  card.dataset.url = r.url;
  card.append(el("h3", "", r.url));
  card.append(el("div", "meta", r.kind + " event file, " + r.bytes + " bytes, " + r.summary +
                                    " — uploaded " + clock(r.time)));
  for (const p of r.problems) card.append(el("div", "problem", p));
  if (r.plot) {
    const img = el("img");
    img.alt = "plot of " + r.url;
    img.src = r.plot;
    card.append(img);
  }
  if (r.kind === "game") {
    const box = el("div", "events");
    const table = el("table");
    const head = el("tr");
    head.append(el("th", "num", "t"), el("th", "", "e"), el("th", "", "a"));
    table.append(head);
    for (const e of r.events) {
      const row = el("tr");
      row.append(el("td", "num", sessionTime(e.t)), el("td", "", e.e), el("td", "", e.a));
      table.append(row);
    }
    box.append(table);
    if (r.eventsTotal > r.events.length) {
      box.append(el("p", "hint", (r.eventsTotal - r.events.length) + " earlier events not shown"));
    }
    card.append(box);
  }
  return card;
}

function renderRecordings() {
  const box = document.getElementById("recordings");
  box.replaceChildren();
  if (recordings.size === 0) {
    box.append(el("p", "empty", "No upload yet."));
    return;
  }
  const sorted = [...recordings.values()].sort((a, b) => a.url.localeCompare(b.url));
  for (const r of sorted) box.append(renderRecording(r));
}

// A burst of requests redraws the table once, not once a request: thousands may come a minute.
let renderTimer = null;
function renderRequestsSoon() {
  if (renderTimer === null) {
    renderTimer = setTimeout(() => {
      renderTimer = null;
      renderRequests();
    }, 100);
  }
}

function addRequest(r) {
  requests.push(r);
  if (requests.length > MAX_ROWS) requests.splice(0, requests.length - MAX_ROWS);
}

function setLink(live) {
  const link = document.getElementById("link");
  link.textContent = live ? "live" : "reconnecting…";
  link.className = "link " + (live ? "live" : "waiting");
}

function applyState(state) {
  requests.length = 0;
  state.requests.forEach(addRequest);
  recordings.clear();
  for (const r of state.recordings) recordings.set(r.url, r);
  renderRequests();
  renderRecordings();
}

function connect() {
  retryTimer = null;
  source = new EventSource("/page/events");
  source.addEventListener("open", () => setLink(true));
  source.addEventListener("state", (message) => applyState(JSON.parse(message.data)));
  source.addEventListener("request", (message) => {
    addRequest(JSON.parse(message.data));
    renderRequestsSoon();
  });
  source.addEventListener("recording", (message) => {
    const r = JSON.parse(message.data);
    recordings.set(r.url, r);
    renderRecordings();
  });
  source.addEventListener("forget", (message) => {
    recordings.delete(JSON.parse(message.data).url);
    renderRecordings();
  });
  source.addEventListener("error", () => {
    setLink(false);
    // The browser retries a dropped stream by itself, but not one refused or ended for good.
    if (source.readyState === EventSource.CLOSED && retryTimer === null) {
      retryTimer = setTimeout(connect, 3000);
    }
  });
}

const served = JSON.parse(document.getElementById("state").textContent);
if (served) applyState(served);
connect();
