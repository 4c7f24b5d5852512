"use strict";

// Keeps the figures of the page fresh. All text is set as text, never as markup: it comes from submitters and servers.

const REFRESH_MS = 2000;
const SVG = "http://www.w3.org/2000/svg";
const CHART = { height: 100, step: 10, bar: 8 };

const byId = (id) => document.getElementById(id);

function shortTime(time) {
  return time === null ? "" : time.slice(0, 19).replace("T", " ");
}

function cell(name, kind, text) {
  const element = document.createElement(name);
  if (kind !== "") {
    element.className = kind;
  }
  if (name === "th") {
    element.scope = "row";
  }
  element.textContent = text;
  return element;
}

/** Fills a table with rows of [element, class, text], and shows the sentence that stands for an empty one. */
function fillTable(id, rows) {
  byId(id).replaceChildren(...rows.map((row) => {
    const line = document.createElement("tr");
    line.append(...row.map(([name, kind, text]) => cell(name, kind, text)));
    return line;
  }));
  byId(id + "-table").hidden = rows.length === 0;
  byId(id + "-none").hidden = rows.length !== 0;
}

function carrierRow(carrier) {
  const kind = carrier.in_trouble ? "text bad" : "text";
  return [["th", "", carrier.name],
    ...Object.values(carrier.jobs).map((jobs) => ["td", "number", String(jobs)]),
    ["td", kind, carrier.condition]];
}

function waitingRow(job) {
  return [["th", "", job.job], ["td", "", job.state], ["td", "", job.carrier], ["td", "", job.recipient],
    ["td", "text", job.subject], ["td", "number", String(job.attempts)], ["td", "time", shortTime(job.due)],
    ["td", "text", job.reason]];
}

function failureRow(failure) {
  return [["td", "time", shortTime(failure.time)], ["th", "", failure.job], ["td", "", failure.carrier],
    ["td", "", failure.recipient], ["td", "number", String(failure.attempt)], ["td", "text", failure.reason],
    ["td", "text", failure.decision]];
}

function bar(kind, place, from, value, top) {
  const height = value * CHART.height / top;
  const element = document.createElementNS(SVG, "rect");
  element.setAttribute("class", kind);
  element.setAttribute("x", String(place * CHART.step + 1));
  element.setAttribute("y", (CHART.height - from * CHART.height / top - height).toFixed(2));
  element.setAttribute("width", String(CHART.bar));
  element.setAttribute("height", height.toFixed(2));
  return element;
}

function drawHour(minutes, summary) {
  const top = Math.max(1, ...minutes.map((minute) => minute.delivered + minute.failed + minute.retried));
  const bars = [];
  minutes.forEach((minute, place) => {
    let from = 0;
    for (const kind of ["delivered", "retried", "failed"]) {
      if (minute[kind] > 0) {
        bars.push(bar(kind, place, from, minute[kind], top));
      }
      from += minute[kind];
    }
  });
  byId("bars").replaceChildren(...bars);
  byId("hour").setAttribute("aria-label", summary);
  byId("hour-summary").textContent = summary;
}

function show(status) {
  byId("phase").textContent = status.phase;
  byId("phase").className = "badge " + (status.ready ? "good" : "bad");
  byId("why").textContent = status.why;
  byId("driver").textContent = status.driver;
  byId("uptime").textContent = status.uptime;
  byId("time").textContent = shortTime(status.time);
  for (const [name, text] of Object.entries(status.figures)) {
    byId("figure-" + name).textContent = text;
  }
  fillTable("carriers", status.carriers.map(carrierRow));
  fillTable("waiting", status.waiting.map(waitingRow));
  fillTable("failures", status.failures.map(failureRow));
  drawHour(status.last_hour, status.last_hour_summary);
}

async function refresh() {
  let isFresh = false;
  try {
    const answer = await fetch("status.json", { cache: "no-store" });
    if (answer.ok) {
      show(await answer.json());
      isFresh = true;
    }
  } catch (error) {
    console.warn(error);
  }
  byId("stale").hidden = isFresh;
  setTimeout(refresh, REFRESH_MS);
}

setTimeout(refresh, REFRESH_MS);
