// The console's pages: each view calls the module through the JSON API, as the
// gateway's own pages call velconfig:get and velconfig:set. What a page can judge
// itself it checks before sending; a non-zero result is shown as a refusal in the
// words of the key catalogue, never as success.
"use strict";

const $ = (sel, root = document) => root.querySelector(sel);

// ---- Talking to the server -------------------------------------------------------
function setBanner(id, shown) { $(id).hidden = !shown; }

async function request(url, init) {
  let r;
  try {
    r = await fetch(url, init);
  } catch (e) {
    setBanner("#offline", true);
    throw new Error("the console server is not answering");
  }
  setBanner("#offline", false);
  const body = await r.json().catch(() => ({}));
  if (r.status === 403 && /token/.test(body.error || "")) setBanner("#signin", true);
  // The simulated gateway's state file cannot be read or saved: nothing shown is true.
  $("#state-problem").textContent = r.status === 503 ? body.error || "" : "";
  setBanner("#state", r.status === 503);
  if (!r.ok) throw new Error(body.error || r.statusText);
  return body;
}

const api = {
  // A read key that changes nothing.
  async get(key, a1, a2) {
    const q = new URLSearchParams();
    if (a1 !== undefined && a1 !== null) q.set("a1", a1);
    if (a2 !== undefined && a2 !== null) q.set("a2", a2);
    const qs = q.toString();
    return (await request("api/get/" + encodeURIComponent(key) + (qs ? "?" + qs : ""))).answer;
  },
  // A read key that changes the gateway (a folder made, a file deleted): POST only.
  async act(key, a1, a2) {
    const args = {};
    if (a1 !== undefined && a1 !== null) args.a1 = a1;
    if (a2 !== undefined && a2 !== null) args.a2 = a2;
    const init = { method: "POST", headers: { "Content-Type": "application/json" }, body: JSON.stringify(args) };
    return (await request("api/get/" + encodeURIComponent(key), init)).answer;
  },
  async set(key, input) {
    const init = { method: "POST", headers: { "Content-Type": "application/json" } };
    if (input !== undefined) init.body = JSON.stringify(input);
    return (await request("api/set/" + encodeURIComponent(key), init)).result;
  },
};

// The key catalogue, loaded once: the explorer's list and the words for results.
let catalogue = [];
const catalogueLoaded = request("api/keys").then((list) => {
  catalogue = Array.isArray(list) ? list : [];
}).catch(() => {});

// What a result code of a write key means, from the catalogue's description of its
// answers ("0 done, 1 a text that is not clean, other values the platform's code").
function resultWords(key, code) {
  const k = catalogue.find((c) => c.call === "set" && c.key === key);
  const text = k ? k.fields : "";
  const parts = text.split(/,\s*/);
  for (const p of parts) {
    const m = p.match(/^(-?\d+)\s+(.*)$/);
    if (m && Number(m[1]) === code) return m[2];
  }
  const other = parts.find((p) => /^other values/.test(p));
  return other ? other.replace(/^other values\s*/, "") : text || "no description of this result";
}

function showResult(node, text, ok) {
  node.textContent = text;
  node.className = "result " + (ok ? "ok" : "bad");
}

function showCode(node, key, code, success) {
  if (code === 0) showResult(node, success, true);
  else showResult(node, "refused: " + resultWords(key, code) + " (result " + code + ")", false);
}

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

// ---- Values as people read them ----------------------------------------------------
function rateText(bits) {
  if (bits >= 1e6) return (bits / 1e6).toFixed(1) + " Mbit/s";
  if (bits >= 1e3) return (bits / 1e3).toFixed(1) + " kbit/s";
  return bits + " bit/s";
}

function duration(seconds) {
  const d = Math.floor(seconds / 86400), h = Math.floor((seconds % 86400) / 3600), m = Math.floor((seconds % 3600) / 60);
  return (d ? d + " d " : "") + h + " h " + m + " min";
}

// Sizes the platform counts in KiB.
function sizeText(kib) {
  const units = ["KiB", "MiB", "GiB", "TiB"];
  let v = Number(kib) || 0, i = 0;
  while (v >= 1024 && i < units.length - 1) { v /= 1024; i++; }
  return (i === 0 ? String(v) : v.toFixed(1)) + " " + units[i];
}

function dateText(date) {
  return date.toLocaleString(undefined, { dateStyle: "medium", timeStyle: "medium" });
}

// The status record's system time: a date when the platform gives the clock
// (seconds since 1970), otherwise the time it has been running, as it is.
function systemTimeText(seconds) {
  if (seconds >= 946684800) return dateText(new Date(seconds * 1000));
  return "running for " + duration(seconds);
}

// A disk as the overview and the files page name it (its label, or the gateway's
// USB_discN), with the device's own name when the page has it.
function diskText(name, device) {
  return device && device !== name ? name + " (" + device + ")" : String(name || device || "");
}

function macText(mac) {
  const hex = String(mac || "").replace(/[^0-9a-fA-F]/g, "");
  return hex.length === 12 ? hex.toUpperCase().match(/../g).join(":") : String(mac || "");
}

const utf8Length = (s) => new TextEncoder().encode(s).length;

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
  $("#refresh-time").textContent = new Date().toLocaleTimeString();
  $("#wan-state").textContent = info.wanConnect === "CONNECTED" ? "connected" : (info.wanConnect || "not connected");
  $("#wan-uptime").textContent = "up " + duration(info.wanUpTime || 0);
  $("#services").textContent = "IPTV " + (info.itv ? "on" : "off") + ", voice " + (info.voip ? "on" : "off");
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
    const canvas = el("canvas", { class: "rate", width: 160, height: 32, role: "img",
      "aria-label": "download and upload rates of the last " + samples.length + " refreshes" });
    drawRates(canvas, samples);
    body.append(el("tr", { class: "device" }, el("td", {}, d.devName || "(unnamed)"), el("td", {}, d.ip || ""),
      el("td", {}, d.kind + (d.type ? " · " + d.type : "")),
      el("td", { class: "num down" }, rateText(d.downSpeed || 0)), el("td", { class: "num up" }, rateText(d.upSpeed || 0)),
      el("td", {}, canvas)));
  }
  const disks = $("#disks tbody");
  disks.replaceChildren();
  for (const s of rows(info, "storage")) {
    disks.append(el("tr", {}, el("td", {}, diskText(s.name)), el("td", { class: "num" }, sizeText(s.usedSize)),
      el("td", { class: "num" }, sizeText(s.maxSize))));
  }
  markScrollers();
}

// ---- Status ----------------------------------------------------------------------
const INFO_LABELS = [
  ["DeviceModel", "Model"], ["ProductCls", "Product class"], ["DevType", "Device type"], ["Vendor", "Vendor"],
  ["ProductSN", "Serial number"], ["NASN", "Network serial number"], ["SWVer", "Software version"],
  ["MAC", "MAC address", macText], ["LANIP", "LAN address"], ["LANIPv6", "LAN IPv6 address"],
  ["WANIP", "Internet address"], ["WANIPv6", "Internet IPv6 address"], ["ssid2g", "2.4 GHz network name"],
  ["ssid5g", "5 GHz network name"], ["wifiOnOff", "Wi-Fi", (v) => (v ? "on" : "off")],
  ["wanAcnt", "PPPoE account"],
];

// The status figures count every device attached; the host list leaves out the
// black-listed ones. What the first counts beyond the second is said, not hidden.
function blackListedText(counted, hosts) {
  const n = counted - (Number(hosts.count) || 0);
  return n > 0 ? " (" + n + (n === 1 ? " of them is" : " of them are") + " black-listed: no Internet access)" : "";
}

async function loadStatus() {
  const [status, info, overview, wired, wireless] = await Promise.all([api.get("gwStatus"), api.get("gwInfo", "all"),
    api.get("allInfo"), api.get("hostsInfo", "0"), api.get("hostsInfo", "1")]);
  const body = $("#status-table tbody");
  body.replaceChildren();
  const add = (name, value) => body.append(el("tr", {}, el("th", { scope: "row" }, name), el("td", {}, value)));
  add("System time", systemTimeText(status.sysTime || 0));
  add("PPPoE connection time", duration(status.upTime || 0));
  add("Processor load", (status.cpuUsed || 0) + " %");
  add("Wired devices", status.wcount + blackListedText(status.wcount, wired));
  add("Wireless devices", status.wlcount + blackListedText(status.wlcount, wireless));
  add("Services", "IPTV " + (status.itv ? "on" : "off") + ", voice " + (status.voip ? "on" : "off"));
  // Both lists hold the storage devices in the platform's order.
  const named = rows(overview, "storage");
  rows(status, "storage").forEach((s, i) => add("Disk " + diskText(named[i]?.name || s.name, s.name), s.usedPer + " % used"));
  for (const [k, label, format] of INFO_LABELS) {
    if (info[k] !== undefined && info[k] !== "") add(label, format ? format(info[k]) : info[k]);
  }
}

// ---- Wi-Fi -------------------------------------------------------------------------
const AUTH_MODES = [["Open", "Open (no password)"], ["Shared", "WEP (shared key)"], ["WPA", "WPA"], ["WPA2", "WPA2"],
  ["WPA/WPA2", "WPA/WPA2"], ["WPA3", "WPA3"], ["WPA2/WPA3", "WPA2/WPA3"]];
const STRENGTHS = [["1", "low (60 %)"], ["2", "medium (80 %)"], ["3", "normal (100 %)"], ["4", "through wall"]];

function fillSelect(select, options) {
  select.replaceChildren(...options.map((o) => el("option", { value: o[0] }, o[1])));
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
    form.elements["wifi_" + band + "_auth"].value = w["auth" + n] || "Open";
    form.elements["wifi_" + band + "_passwd"].value = w["passwd" + n] || "";
    form.elements["wifi_" + band + "_strength"].value = String(w["powerLevel" + n] || 3);
  }
}

// Why the band's settings cannot be sent, or "".
function wifiProblem(form, band, name) {
  const f = (field) => form.elements["wifi_" + band + "_" + field];
  if (!f("enbl").checked) return "";
  const ssidBytes = utf8Length(f("ssid").value);
  if (ssidBytes < 1 || ssidBytes > 32) return name + " network name must be 1 to 32 bytes (it is " + ssidBytes + ")";
  const mode = f("auth").value, password = f("passwd").value, bytes = utf8Length(password);
  if (mode === "Shared" && ![5, 10, 13, 26].includes(bytes)) {
    return name + " WEP key must be 5 or 13 characters, or 10 or 26 hexadecimal digits";
  }
  if (mode !== "Open" && mode !== "Shared" && (bytes < 8 || bytes > 63)) {
    return name + " password must be 8 to 63 bytes for " + mode + " (it is " + bytes + ")";
  }
  return "";
}

async function saveWifi(event) {
  event.preventDefault();
  const form = event.target, result = $("#wifi-result");
  const problem = wifiProblem(form, "2G", "the 2.4 GHz") ||
    (form.elements.wifi_dualBand.checked ? wifiProblem(form, "5G", "the 5 GHz") : "");
  if (problem) return showResult(result, "refused: " + problem, false);
  const input = {};
  for (const e of form.elements) {
    if (!e.name) continue;
    input[e.name] = e.type === "checkbox" ? (e.checked ? "1" : "0") : e.value;
  }
  try {
    showCode(result, "wifiBasic", await api.set("wifiBasic", input), "saved");
  } catch (e) {
    showResult(result, "refused: " + e.message, false);
  }
}

function toggleSecret(event) {
  const button = event.target, input = button.previousElementSibling;
  const show = input.type === "password";
  input.type = show ? "text" : "password";
  button.textContent = show ? "Hide" : "Show";
  button.setAttribute("aria-pressed", String(show));
}

// ---- Port mapping --------------------------------------------------------------------
let ruleList = null;

async function loadRules() {
  ruleList = await api.get("pmLists");
  const body = $("#rules tbody");
  body.replaceChildren();
  for (const r of rows(ruleList, "pmRule")) {
    const toggle = el("button", { type: "button", class: "toggle",
      onclick: () => changeRule({ op: r.enable ? "disable" : "enable", desp: r.desp }, r.enable ? "disabled" : "enabled") },
    r.enable ? "Disable" : "Enable");
    const remove = el("button", { type: "button", class: "delete", onclick: () => {
      if (confirm("Delete the port-mapping rule " + r.desp + "?")) changeRule({ op: "del", desp: r.desp }, "deleted");
    } }, "Delete");
    body.append(el("tr", { class: "rule" }, el("td", {}, r.desp), el("td", {}, r.client), el("td", {}, r.protocol),
      el("td", { class: "num" }, r.exPort), el("td", { class: "num" }, r.inPort),
      el("td", { class: "state" }, r.enable ? "on" : "off"), el("td", {}, toggle, " ", remove)));
  }
  markScrollers();
}

async function changeRule(input, success, key = "pmSetSingle") {
  const result = $("#rule-result");
  let done = false;
  try {
    const code = await api.set(key, input);
    showCode(result, key, code, success);
    done = code === 0;
  } catch (e) {
    showResult(result, "refused: " + e.message, false);
  }
  await loadRules();
  return done;
}

function changeAll(op, success) {
  if (op === "del" && !confirm("Delete every port-mapping rule?")) return;
  changeRule({ op }, success, "pmSetAll");
}

const ipv4 = (text) => {
  const m = /^(\d{1,3})\.(\d{1,3})\.(\d{1,3})\.(\d{1,3})$/.exec(text);
  if (!m || m.slice(1).some((p) => Number(p) > 255 || (p.length > 1 && p[0] === "0"))) return null;
  return m.slice(1).reduce((n, p) => n * 256 + Number(p), 0);
};

const portNumber = (text) => (/^\d{1,5}$/.test(text) && Number(text) >= 1 && Number(text) <= 65535 ? Number(text) : 0);

// Why the new rule cannot be added, or "".
function ruleProblem(rule) {
  const nameBytes = utf8Length(rule.desp);
  if (nameBytes < 1 || nameBytes > 31) return "the name must be 1 to 31 bytes";
  const client = ipv4(rule.client), lan = ipv4(ruleList?.lanIp || ""), mask = ipv4(ruleList?.mask || "");
  if (client === null) return "the client must be an IPv4 address such as 192.168.1.20";
  if (lan !== null && mask !== null) {
    const host = (client & ~mask) >>> 0, broadcast = ~mask >>> 0;
    if ((client & mask) >>> 0 !== (lan & mask) >>> 0 || host === 0 || host === broadcast || client === lan) {
      return "the client must be a device address in the LAN " + ruleList.lanIp + "/" + ruleList.mask;
    }
  }
  if (!portNumber(rule.exPort)) return "the external port must be a number from 1 to 65535";
  if (!portNumber(rule.inPort)) return "the internal port must be a number from 1 to 65535";
  const overlaps = (a, b) => a === b || a === "BOTH" || b === "BOTH";
  for (const r of rows(ruleList, "pmRule")) {
    if (r.desp === rule.desp) return "a rule named " + rule.desp + " exists already";
    if (r.exPort === Number(rule.exPort) && overlaps(r.protocol, rule.protocol)) {
      return "external port " + rule.exPort + " is mapped already by " + r.desp;
    }
  }
  return "";
}

async function addRule(event) {
  event.preventDefault();
  const form = event.target;
  const input = { op: "add" };
  for (const e of form.elements) if (e.name) input[e.name] = e.value.trim();
  const problem = ruleProblem(input);
  if (problem) return showResult($("#rule-result"), "refused: " + problem, false);
  if (await changeRule(input, "added " + input.desp)) form.reset();
}

// ---- Files -------------------------------------------------------------------------
let currentFolder = null;
let diskRoot = null;
let entries = [];

function showListing(table) {
  if (table.filePath) currentFolder = table.filePath;
  $("#folder").textContent = currentFolder || "(no disk)";
  entries = rows(table, "file");
  const body = $("#entries tbody");
  body.replaceChildren();
  for (const f of entries) {
    const path = currentFolder + "/" + f.name;
    const open = f.isFolder ? el("button", { type: "button", class: "link", onclick: () => openFolder(path) }, f.name) : f.name;
    const copy = f.isFolder || currentFolder === diskRoot ? ""
      : el("button", { type: "button", onclick: () => copyToRoot(f.name) }, "Copy to disk root");
    const del = el("button", { type: "button", class: "delete", "aria-label": "Delete " + f.name,
      onclick: () => deleteEntry(f.name) }, "Delete");
    body.append(el("tr", { class: "entry" }, el("td", {}, f.isFolder ? folderIcon() : ""), el("td", {}, open),
      el("td", { class: "num" }, f.isFolder ? "" : sizeText(f.size)), el("td", { class: "time" }, f.time),
      el("td", {}, copy, " ", del)));
  }
  markScrollers();
}

// A folder drawn inline, so that it shows without an emoji font.
function folderIcon() {
  const ns = "http://www.w3.org/2000/svg";
  const svg = document.createElementNS(ns, "svg");
  svg.setAttribute("viewBox", "0 0 16 16");
  svg.setAttribute("class", "icon");
  svg.setAttribute("role", "img");
  svg.setAttribute("aria-label", "folder");
  const path = document.createElementNS(ns, "path");
  path.setAttribute("d", "M1 3.5A1.5 1.5 0 0 1 2.5 2h3.6l1.6 1.8h5.8A1.5 1.5 0 0 1 15 5.3v7.2a1.5 1.5 0 0 1-1.5 1.5h-11A1.5 1.5 0 0 1 1 12.5z");
  path.setAttribute("fill", "#e0a526");
  svg.append(path);
  return svg;
}

const filesResult = (text, ok) => showResult($("#files-result"), text, ok);
const listed = (name) => entries.some((f) => f.name === name);

// The disks a fileLists answer offers, as [instance, name].
const disksOf = (t) => {
  const out = [];
  for (let i = 1; t["storage" + i] !== undefined; i++) out.push([String(t["instno" + i]), t["storage" + i]]);
  return out;
};

async function loadFiles(instance) {
  const t = await api.get("fileLists", instance);
  const disk = $("#disk");
  disk.replaceChildren();
  for (const [inst, name] of disksOf(t)) disk.append(el("option", { value: inst }, name));
  if (t.usbLabelInst !== undefined) disk.value = t.usbLabelInst;
  diskRoot = t.filePath || null;
  currentFolder = diskRoot;
  showListing(t);
}

// While the files page is open: a disk pulled out (or plugged in) shows at once,
// instead of a listing of a disk that is no longer there.
async function filesTick() {
  let t;
  try {
    t = await api.get("fileLists");
  } catch (e) {
    return; // the offline banner says it
  }
  const now = disksOf(t), shown = [...$("#disk").options].map((o) => [o.value, o.textContent]);
  if (JSON.stringify(now) === JSON.stringify(shown)) return;
  const open = $("#disk").selectedOptions[0];
  const gone = open && !now.some(([inst]) => inst === open.value);
  await loadFiles(gone ? undefined : open?.value);
  if (gone) filesResult(open.textContent + " was unplugged" + (now.length ? "" : "; no disk is left"), false);
}

async function openFolder(path) {
  try {
    const t = await api.get("subFiles", path);
    if (!t.filePath) return filesResult("refused: " + path + " cannot be listed", false);
    showListing(t);
    filesResult("", true);
  } catch (e) {
    filesResult("refused: " + e.message, false);
  }
}

// The name a folder may have, or why not.
function folderNameProblem(name) {
  if (name === "" || name === "." || name === "..") return "give the folder a name";
  if (name.includes("/")) return "a folder name cannot contain /";
  if (utf8Length(name) > 255) return "a folder name is at most 255 bytes";
  if (listed(name)) return name + " exists already in this folder";
  return "";
}

async function createFolder(event) {
  event.preventDefault();
  const form = event.target, name = form.elements.name.value.trim();
  const problem = currentFolder ? folderNameProblem(name) : "no disk is open";
  if (problem) return filesResult("refused: " + problem, false);
  try {
    const t = await api.act("newFolder", currentFolder + "/" + name);
    // A refused creation answers no listing: the one shown stays.
    if (!t.filePath) return filesResult("refused: the gateway did not create " + name, false);
    showListing(t);
    if (!listed(name)) return filesResult("refused: the gateway did not create " + name, false);
    filesResult("created " + name, true);
    form.reset();
  } catch (e) {
    filesResult("refused: " + e.message, false);
  }
}

async function deleteEntry(name) {
  if (!confirm("Delete " + currentFolder + "/" + name + "? This cannot be undone.")) return;
  try {
    const t = await api.act("deleteFiles", currentFolder, name + "/");
    if (!t.filePath) return filesResult("refused: " + name + " was not deleted", false);
    showListing(t);
    filesResult(listed(name) ? "refused: " + name + " was not deleted" : "deleted " + name, !listed(name));
  } catch (e) {
    filesResult("refused: " + e.message, false);
  }
}

async function copyToRoot(name) {
  try {
    const t = await api.act("copyMove", "copy|" + currentFolder + "|" + diskRoot + "|" + name, name + "/");
    if (!t.setRes) return filesResult("refused: the copy of " + name + " did not start", false);
    filesResult("copying " + name + " to " + diskRoot, true);
    await pollProgress(t.transId);
  } catch (e) {
    filesResult("refused: " + e.message, false);
  }
}

async function pollProgress(transId) {
  for (;;) {
    const p = await api.get("copyProgress", String(transId));
    $("#copy-progress").value = Math.min(100, p.percent);
    $("#copy-percent").textContent = p.percent === 200 ? "failed" : p.percent + " %";
    if (p.percent === 200) return filesResult("refused: the copy failed", false);
    if (p.percent >= 100) return filesResult("copied", true);
    await new Promise((r) => setTimeout(r, 1000));
  }
}

async function formatDisk() {
  const disk = $("#disk"), option = disk.selectedOptions[0];
  if (!option) return filesResult("refused: no disk is open", false);
  if (!confirm("Format " + option.textContent + "? Every file on it is erased.")) return;
  try {
    const t = await api.act("usbFormat", disk.value);
    // Formatting answers a listing only when it failed.
    if (!t.filePath || t.fileNum > 0) return filesResult("refused: " + option.textContent + " was not formatted", false);
    await loadFiles(disk.value);
    filesResult("formatted " + option.textContent, true);
  } catch (e) {
    filesResult("refused: " + e.message, false);
  }
}

// ---- Key explorer ------------------------------------------------------------------
async function loadExplorer() {
  await catalogueLoaded;
  const select = $("#explorer-form").elements.key;
  if (select.options.length > 0) return;
  const groups = ["get", "set"].map((call) => el("optgroup", { label: call === "get" ? "read (get)" : "write (set)" },
    ...catalogue.map((k, i) => [k, i]).filter(([k]) => k.call === call)
      .map(([k, i]) => el("option", { value: i }, call + " " + k.key + (k.built ? "" : " (not built)")))));
  select.replaceChildren(...groups);
  select.addEventListener("change", describeKey);
  describeKey();
}

function describeKey() {
  const k = catalogue[$("#explorer-form").elements.key.value];
  if (!k) return;
  for (const p of document.querySelectorAll("#explorer .get-only")) p.hidden = k.call !== "get";
  for (const p of document.querySelectorAll("#explorer .set-only")) p.hidden = k.call !== "set";
  $("#key-doc").textContent = k.call + " " + k.key + ": " + (k.args ? "arguments: " + k.args + ". " : "") +
    (k.fields ? (k.call === "set" ? "results: " : "answer: ") + k.fields + ". " : "") +
    (k.changes ? "Changes the gateway." : "Changes nothing.");
  // What each argument or field means and accepts, from the key catalogue.
  $("#key-fields").replaceChildren(...(k.explain || []).flatMap((f) => [el("dt", {}, f.name), el("dd", {}, f.text)]));
}

async function callKey(event) {
  event.preventDefault();
  const f = event.target.elements, out = $("#answer"), result = $("#explorer-result");
  const k = catalogue[f.key.value];
  if (!k) return showResult(result, "refused: the key list did not load", false);
  out.textContent = "";
  try {
    if (k.call === "get") {
      const a1 = f.a1.value === "" ? undefined : f.a1.value, a2 = f.a2.value === "" ? undefined : f.a2.value;
      const answer = k.changes ? await api.act(k.key, a1, a2) : await api.get(k.key, a1, a2);
      out.textContent = JSON.stringify(answer, null, 2);
      showResult(result, "answered", true);
    } else {
      const text = f.body.value.trim();
      let input;
      try {
        input = text ? JSON.parse(text) : undefined;
      } catch (e) {
        return showResult(result, "refused: the input is not JSON", false);
      }
      const code = await api.set(k.key, input);
      out.textContent = JSON.stringify(code);
      showCode(result, k.key, code, "done (result 0)");
    }
  } catch (e) {
    showResult(result, "refused: " + e.message, false);
  }
}

// ---- Tables wider than the screen ----------------------------------------------------
// A table that scrolls sideways says so: a line above it and a fade at the edge that
// has more, both updated as it scrolls and as the window changes.
function markScroller(box) {
  let hint = box.previousElementSibling;
  if (!hint || !hint.classList.contains("scroll-hint")) {
    hint = el("p", { class: "scroll-hint note", "aria-hidden": "true" }, "Scroll sideways for more columns ⇆");
    box.before(hint);
    box.addEventListener("scroll", () => markScroller(box), { passive: true });
  }
  const more = box.scrollWidth - box.clientWidth;
  hint.hidden = more <= 1;
  box.classList.toggle("more-right", box.scrollLeft < more - 1);
  box.classList.toggle("more-left", box.scrollLeft > 1);
}

function markScrollers() {
  for (const box of document.querySelectorAll(".page.active .scroll")) markScroller(box);
}

// ---- Routing -----------------------------------------------------------------------
let timer = null;

async function overviewTick() {
  try {
    await refreshOverview();
  } catch (e) {
    // the offline banner says it; the next tick tries again
  }
}

const views = {
  overview: () => { overviewTick(); timer = setInterval(overviewTick, REFRESH_SECONDS * 1000); },
  status: loadStatus,
  wifi: loadWifi,
  portmap: loadRules,
  files: () => { timer = setInterval(filesTick, REFRESH_SECONDS * 1000); return loadFiles(); },
  explorer: loadExplorer,
};

function route() {
  const name = views[location.hash.slice(1)] ? location.hash.slice(1) : "overview";
  clearInterval(timer);
  for (const p of document.querySelectorAll(".page")) p.classList.toggle("active", p.id === name);
  for (const a of document.querySelectorAll("nav a")) {
    if (a.hash === "#" + name) a.setAttribute("aria-current", "page");
    else a.removeAttribute("aria-current");
  }
  Promise.resolve(views[name]()).catch((e) => {
    const result = $("#" + name + " .result");
    if (result) showResult(result, "could not load: " + e.message, false);
  });
}

$("#refresh-seconds").textContent = REFRESH_SECONDS;
$("#wifi-form").addEventListener("submit", saveWifi);
for (const b of document.querySelectorAll("button.reveal")) b.addEventListener("click", toggleSecret);
$("#rule-form").addEventListener("submit", addRule);
$("#rules-enable").addEventListener("click", () => changeAll("enable", "all rules enabled"));
$("#rules-disable").addEventListener("click", () => changeAll("disable", "all rules disabled"));
$("#rules-delete").addEventListener("click", () => changeAll("del", "all rules deleted"));
$("#folder-form").addEventListener("submit", createFolder);
$("#format").addEventListener("click", formatDisk);
$("#explorer-form").addEventListener("submit", callKey);
$("#disk").addEventListener("change", (e) => loadFiles(e.target.value));
$("#up").addEventListener("click", () => {
  if (currentFolder && diskRoot && currentFolder !== diskRoot) openFolder(currentFolder.replace(/\/[^/]*$/, ""));
});
window.addEventListener("hashchange", route);
window.addEventListener("resize", markScrollers);
route();
