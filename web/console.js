// The console's pages: each view calls the module through the JSON API, as the
// gateway's own pages call velconfig:get and velconfig:set.
"use strict";

const api = {
  async get(key, a1, a2) {
    const q = new URLSearchParams();
    if (a1 !== undefined && a1 !== null) q.set("a1", a1);
    if (a2 !== undefined && a2 !== null) q.set("a2", a2);
    const qs = q.toString();
    const r = await fetch("/api/get/" + encodeURIComponent(key) + (qs ? "?" + qs : ""));
    const body = await r.json();
    if (!r.ok) throw new Error(body.error || r.statusText);
    return body.answer;
  },
  async set(key, input) {
    const init = { method: "POST", headers: { "Content-Type": "application/json" } };
    if (input !== undefined) init.body = JSON.stringify(input);
    const r = await fetch("/api/set/" + encodeURIComponent(key), init);
    const body = await r.json();
    if (!r.ok) throw new Error(body.error || r.statusText);
    return body.result;
  },
};

const $ = (sel, root = document) => root.querySelector(sel);

function el(tag, attrs = {}, ...children) {
  const e = document.createElement(tag);
  for (const [k, v] of Object.entries(attrs)) {
    if (k === "class") e.className = v;
    else if (k.startsWith("on")) e.addEventListener(k.slice(2), v);
    else e.setAttribute(k, v);
  }
  for (const c of children) e.append(c instanceof Node ? c : document.createTextNode(String(c)));
  return e;
}

// Numbered rows of a result table ("dev1", "dev2", ...) in order.
function rows(table, prefix) {
  const out = [];
  if (!table) return out;
  for (let i = 1; table[prefix + i] !== undefined; i++) out.push(table[prefix + i]);
  return out;
}

function showResult(node, text, ok) {
  node.textContent = text;
  node.className = "result " + (ok ? "ok" : "bad");
}

function rateText(bits) {
  if (bits >= 1e6) return (bits / 1e6).toFixed(1) + " Mbit/s";
  if (bits >= 1e3) return (bits / 1e3).toFixed(1) + " kbit/s";
  return bits + " bit/s";
}

function duration(seconds) {
  const d = Math.floor(seconds / 86400), h = Math.floor((seconds % 86400) / 3600), m = Math.floor((seconds % 3600) / 60);
  return (d ? d + "d " : "") + h + "h " + m + "m";
}

// ---- Overview: devices with live rates -----------------------------------------
const REFRESH_SECONDS = 3;
const history = new Map(); // device key -> [{down, up}]
let refreshes = 0;

function drawRates(canvas, samples) {
  const ctx = canvas.getContext("2d");
  const w = canvas.width, h = canvas.height;
  ctx.clearRect(0, 0, w, h);
  const max = Math.max(1, ...samples.map((s) => Math.max(s.down, s.up)));
  for (const [field, color] of [["down", "#1f5fbf"], ["up", "#d9822b"]]) {
    ctx.strokeStyle = color;
    ctx.beginPath();
    samples.forEach((s, i) => {
      const x = samples.length > 1 ? (i * (w - 2)) / (samples.length - 1) + 1 : w / 2;
      const y = h - 1 - (s[field] / max) * (h - 2);
      if (i === 0) ctx.moveTo(x, y); else ctx.lineTo(x, y);
    });
    ctx.stroke();
  }
}

async function refreshOverview() {
  const info = await api.get("allInfo");
  refreshes++;
  $("#refresh-count").textContent = refreshes;
  $("#wan-state").textContent = info.wanConnect || "not connected";
  $("#wan-uptime").textContent = "up " + duration(info.wanUpTime || 0);
  $("#services").textContent = "IPTV " + (info.itv ? "on" : "off") + ", VoIP " + (info.voip ? "on" : "off");
  $("#totals").textContent = "wired ↓" + rateText(info.tWDown || 0) + " ↑" + rateText(info.tWUp || 0) +
    ", wireless ↓" + rateText(info.tWlDown || 0) + " ↑" + rateText(info.tWlUp || 0);

  const body = $("#devices tbody");
  body.replaceChildren();
  const devices = rows(info, "pc").map((d) => ({ ...d, kind: "wired" }))
    .concat(rows(info, "wifi").map((d) => ({ ...d, kind: "wireless" })));
  for (const d of devices) {
    const key = d.kind + "|" + d.ip + "|" + d.devName;
    const samples = history.get(key) || [];
    samples.push({ down: d.downSpeed || 0, up: d.upSpeed || 0 });
    if (samples.length > 30) samples.shift();
    history.set(key, samples);
    const canvas = el("canvas", { class: "rate", width: 160, height: 32 });
    drawRates(canvas, samples);
    body.append(el("tr", { class: "device" }, el("td", {}, d.devName || "(unnamed)"), el("td", {}, d.ip || ""),
      el("td", {}, d.kind + (d.type ? " · " + d.type : "")),
      el("td", { class: "num down" }, rateText(d.downSpeed || 0)), el("td", { class: "num up" }, rateText(d.upSpeed || 0)),
      el("td", {}, canvas)));
  }
  const disks = $("#disks tbody");
  disks.replaceChildren();
  for (const s of rows(info, "storage")) {
    disks.append(el("tr", {}, el("td", {}, s.name), el("td", { class: "num" }, s.usedSize), el("td", { class: "num" }, s.maxSize)));
  }
}

// ---- Status ----------------------------------------------------------------------
async function loadStatus() {
  const [status, info] = await Promise.all([api.get("gwStatus"), api.get("gwInfo", "all")]);
  const body = $("#status-table tbody");
  body.replaceChildren();
  const add = (name, value) => body.append(el("tr", {}, el("th", {}, name), el("td", {}, value)));
  add("Up time", duration(status.upTime || 0));
  add("System time", status.sysTime);
  add("Processor", (status.cpuUsed || 0) + " %");
  add("Wired devices", status.wcount);
  add("Wireless devices", status.wlcount);
  for (const s of rows(status, "storage")) add("Disk " + s.name, s.usedPer + " % used");
  for (const k of ["ProductCls", "ProductSN", "SWVer", "MAC", "LANIP", "WANIP", "WANIPv6", "ssid2g", "ssid5g", "wanAcnt"]) {
    if (info[k] !== undefined) add(k, info[k]);
  }
}

// ---- Wi-Fi -------------------------------------------------------------------------
const AUTH_MODES = ["None", "Basic", "WPA", "WPA2", "WPA/WPA2", "WPA3", "WPA2/WPA3"];
const STRENGTHS = [["1", "low (60 %)"], ["2", "medium (80 %)"], ["3", "normal (100 %)"], ["4", "through wall"]];

function fillSelect(select, options) {
  select.replaceChildren(...options.map((o) => Array.isArray(o) ? el("option", { value: o[0] }, o[1]) : el("option", { value: o }, o)));
}

async function loadWifi() {
  const form = $("#wifi-form");
  for (const band of ["2G", "5G"]) {
    fillSelect(form.elements["wifi_" + band + "_auth"], AUTH_MODES);
    fillSelect(form.elements["wifi_" + band + "_strength"], STRENGTHS);
  }
  const w = await api.get("wifiBasic");
  form.elements.wifi_dualBand.checked = !!w.dualBand;
  for (const [band, n] of [["2G", 1], ["5G", 2]]) {
    form.elements["wifi_" + band + "_enbl"].checked = !!w["enbl" + n];
    form.elements["wifi_" + band + "_ssid"].value = w["ssid" + n] || "";
    form.elements["wifi_" + band + "_auth"].value = w["auth" + n] || "None";
    form.elements["wifi_" + band + "_passwd"].value = w["passwd" + n] || "";
    form.elements["wifi_" + band + "_strength"].value = String(w["powerLevel" + n] || 3);
  }
}

async function saveWifi(event) {
  event.preventDefault();
  const form = event.target;
  const input = {};
  for (const e of form.elements) {
    if (!e.name) continue;
    input[e.name] = e.type === "checkbox" ? (e.checked ? "1" : "0") : e.value;
  }
  try {
    const code = await api.set("wifiBasic", input);
    showResult($("#wifi-result"), code === 0 ? "saved" : "failed (" + code + ")", code === 0);
  } catch (e) {
    showResult($("#wifi-result"), e.message, false);
  }
}

// ---- Port mapping --------------------------------------------------------------------
async function loadRules() {
  const list = await api.get("pmLists");
  const body = $("#rules tbody");
  body.replaceChildren();
  for (const r of rows(list, "pmRule")) {
    const remove = el("button", { class: "delete", onclick: () => changeRule({ op: "del", desp: r.desp }) }, "Delete");
    body.append(el("tr", { class: "rule" }, el("td", {}, r.desp), el("td", {}, r.client), el("td", {}, r.protocol),
      el("td", { class: "num" }, r.exPort), el("td", { class: "num" }, r.inPort), el("td", {}, r.enable ? "yes" : "no"), el("td", {}, remove)));
  }
}

async function changeRule(input) {
  try {
    const code = await api.set("pmSetSingle", input);
    showResult($("#rule-result"), code === 0 ? "done" : "failed (" + code + ")", code === 0);
  } catch (e) {
    showResult($("#rule-result"), e.message, false);
  }
  await loadRules();
}

async function addRule(event) {
  event.preventDefault();
  const input = { op: "add" };
  for (const e of event.target.elements) if (e.name) input[e.name] = e.value;
  await changeRule(input);
}

// ---- Files -------------------------------------------------------------------------
let currentFolder = null;
let diskRoot = null;

function showListing(table) {
  if (table.filePath) currentFolder = table.filePath;
  $("#folder").textContent = currentFolder || "(no disk)";
  const body = $("#entries tbody");
  body.replaceChildren();
  for (const f of rows(table, "file")) {
    const path = currentFolder + "/" + f.name;
    const open = f.isFolder ? el("button", { class: "link", onclick: () => openFolder(path) }, f.name) : f.name;
    const copy = f.isFolder ? "" : el("button", { onclick: () => copyHere(f.name) }, "Copy to root");
    const del = el("button", { onclick: () => runFiles("deleteFiles", currentFolder, f.name + "/") }, "Delete");
    body.append(el("tr", { class: "entry" }, el("td", {}, f.isFolder ? "📁" : ""), el("td", {}, open),
      el("td", { class: "num" }, f.size), el("td", {}, f.time), el("td", {}, copy, " ", del)));
  }
}

async function runFiles(key, a1, a2) {
  try {
    showListing(await api.get(key, a1, a2));
    showResult($("#files-result"), "", true);
  } catch (e) {
    showResult($("#files-result"), e.message, false);
  }
}

async function loadFiles(instance) {
  const t = await api.get("fileLists", instance);
  const disk = $("#disk");
  disk.replaceChildren();
  for (let i = 1; t["storage" + i] !== undefined; i++) {
    disk.append(el("option", { value: t["instno" + i] }, t["storage" + i]));
  }
  if (t.usbLabelInst !== undefined) disk.value = t.usbLabelInst;
  diskRoot = t.filePath || null;
  currentFolder = diskRoot;
  showListing(t);
}

function openFolder(path) { return runFiles("subFiles", path); }

async function copyHere(name) {
  if (!diskRoot || currentFolder === diskRoot) return;
  const t = await api.get("copyMove", "copy|" + currentFolder + "|" + diskRoot + "|" + name, name + "/");
  pollProgress(t.transId);
}

async function pollProgress(transId) {
  for (;;) {
    const p = await api.get("copyProgress", String(transId));
    $("#copy-progress").value = Math.min(100, p.percent);
    $("#copy-percent").textContent = p.percent === 200 ? "failed" : p.percent + " %";
    if (p.percent >= 100) break;
    await new Promise((r) => setTimeout(r, 1000));
  }
}

async function createFolder(event) {
  event.preventDefault();
  const name = event.target.elements.name.value;
  await runFiles("newFolder", currentFolder + "/" + name);
  event.target.reset();
}

// ---- Key explorer ------------------------------------------------------------------
let catalogue = [];

async function loadExplorer() {
  if (catalogue.length === 0) {
    const r = await fetch("/api/keys");
    catalogue = await r.json();
    const select = $("#explorer-form").elements.key;
    select.replaceChildren(...catalogue.map((k, i) => el("option", { value: i }, k.call + " " + k.key)));
    select.addEventListener("change", describeKey);
    describeKey();
  }
}

function describeKey() {
  const k = catalogue[$("#explorer-form").elements.key.value];
  if (!k) return;
  $("#key-doc").textContent = (k.args ? "arguments: " + k.args + ". " : "") +
    (k.fields ? "answer: " + k.fields + ". " : "") + (k.changes ? "Changes the gateway." : "Changes nothing.");
}

async function callKey(event) {
  event.preventDefault();
  const f = event.target.elements;
  const k = catalogue[f.key.value];
  const out = $("#answer");
  try {
    if (k.call === "get") {
      out.textContent = JSON.stringify(await api.get(k.key, f.a1.value || undefined, f.a2.value || undefined), null, 2);
    } else {
      const body = f.body.value.trim();
      out.textContent = JSON.stringify(await api.set(k.key, body ? JSON.parse(body) : undefined));
    }
  } catch (e) {
    out.textContent = "error: " + e.message;
  }
}

// ---- Routing -----------------------------------------------------------------------
let timer = null;
const views = {
  overview: () => { refreshOverview(); timer = setInterval(refreshOverview, REFRESH_SECONDS * 1000); },
  status: loadStatus,
  wifi: loadWifi,
  portmap: loadRules,
  files: () => loadFiles(),
  explorer: loadExplorer,
};

function route() {
  const name = views[location.hash.slice(1)] ? location.hash.slice(1) : "overview";
  clearInterval(timer);
  for (const p of document.querySelectorAll(".page")) p.classList.toggle("active", p.id === name);
  for (const a of document.querySelectorAll("nav a")) a.classList.toggle("active", a.hash === "#" + name);
  Promise.resolve(views[name]()).catch((e) => console.error(e));
}

$("#refresh-seconds").textContent = REFRESH_SECONDS;
$("#wifi-form").addEventListener("submit", saveWifi);
$("#rule-form").addEventListener("submit", addRule);
$("#folder-form").addEventListener("submit", createFolder);
$("#explorer-form").addEventListener("submit", callKey);
$("#disk").addEventListener("change", (e) => loadFiles(e.target.value));
$("#up").addEventListener("click", () => {
  if (currentFolder && diskRoot && currentFolder !== diskRoot) openFolder(currentFolder.replace(/\/[^/]*$/, ""));
});
window.addEventListener("hashchange", route);
route();
