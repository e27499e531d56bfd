// The example page folder (examples/pages) in headless Chromium: `velconfig serve
// --pages` on a copy of it over a fresh simulated gateway, opened at the address it
// prints; one scenario per page: the CGI overview renders and reloads itself after an
// edit, the handler page's form changes the SSID, and a page that raises shows its
// traceback, file and line first, in the browser and on the terminal.
import { test, before, after } from "node:test";
import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { mkdtempSync, rmSync, mkdirSync, cpSync, readFileSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join, dirname } from "node:path";
import { fileURLToPath } from "node:url";
import http from "node:http";
import { chromium } from "playwright-core";

const tool = process.env.VELCONFIG_TOOL;
const shots = process.env.VELCONFIG_SCREENSHOT_DIR;
const examples = join(dirname(fileURLToPath(import.meta.url)), "..", "..", "examples", "pages");
let server, base, token, browser, context, dir, pages, terminal = "";

function startServer() {
  dir = mkdtempSync(join(tmpdir(), "velconfig-pages-"));
  pages = join(dir, "pages");
  cpSync(examples, pages, { recursive: true });
  const child = spawn(tool, ["--state", join(dir, "gateway.json"), "serve", "--pages", pages, "--port", "0"], {
    env: { ...process.env, VELCONFIG_ROOT: join(dir, "root") },
    stdio: ["ignore", "pipe", "pipe"],
  });
  child.stderr.on("data", (chunk) => (terminal += chunk));
  return new Promise((resolve, reject) => {
    let out = "";
    child.stdout.on("data", (chunk) => {
      out += chunk;
      const m = out.match(/(http:\/\/127\.0\.0\.1:\d+\/)\?token=([0-9a-f]+)/);
      if (m) resolve([child, m[1], m[2]]);
    });
    child.on("exit", (code) => reject(new Error("serve exited with " + code + ": " + terminal)));
  });
}

// The gateway as a script sees it, through the console's API under /velconfig/.
function apiGet(key) {
  return new Promise((resolve, reject) => {
    http.get(new URL(`/velconfig/api/get/${key}`, base), { headers: { Authorization: "Token " + token } }, (res) => {
      let data = "";
      res.on("data", (c) => (data += c));
      res.on("end", () => (res.statusCode === 200 ? resolve(JSON.parse(data).answer) : reject(new Error(data))));
    }).on("error", reject);
  });
}

// The status of a plain request, with the headers given.
function status(path, headers = {}) {
  return new Promise((resolve, reject) => {
    http.get(new URL(path, base), { headers }, (res) => { res.resume(); resolve(res.statusCode); }).on("error", reject);
  });
}

// A page of the folder with everything that goes wrong in it collected; expected:
// statuses of 400 and over the scenario provokes.
async function open(path, expected = []) {
  const page = await context.newPage();
  await page.setViewportSize({ width: 900, height: 640 });
  const problems = [];
  page.on("pageerror", (e) => problems.push("page error: " + e.message));
  page.on("console", (m) => {
    const status = Number(m.text().match(/status of (\d+)/)?.[1]);
    if (m.type() === "error" && !expected.includes(status)) problems.push("console error: " + m.text());
  });
  page.on("response", (r) => {
    if (r.status() >= 400 && !expected.includes(r.status())) problems.push(`answer ${r.status()}: ${r.url()}`);
  });
  await page.goto(base + path);
  return { page, done: async () => { assert.deepEqual(problems, [], path); await page.close(); } };
}

// Rewrites a file of the served copy, as an editor would.
function edit(name, change) {
  const file = join(pages, name);
  writeFileSync(file, change(readFileSync(file, "utf8")));
}

before(async () => {
  let url;
  [server, url, token] = await startServer();
  base = url;
  browser = await chromium.launch({
    executablePath: process.env.CHROMIUM || "/usr/bin/chromium",
    args: ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
      "--disable-component-update", "--disable-sync"],
  });
  context = await browser.newContext();
  const page = await context.newPage();
  await page.goto(base + "?token=" + token);
  assert.equal(await page.locator("h1").textContent(), "My gateway pages");
  await page.close();
});

after(async () => {
  await browser?.close();
  server?.kill("SIGTERM");
  if (dir) rmSync(dir, { recursive: true, force: true });
});

test("overview (CGI page): the gateway's devices from allInfo, and an edit shows without a restart", async () => {
  const { page, done } = await open("overview.lua");
  const info = await apiGet("allInfo");
  assert.equal(await page.locator("#wan").textContent(), info.wanConnect);
  assert.equal(await page.locator("table tr").count(), 1 + info.wcount + info.wlcount);
  assert.equal(Number(await page.locator("#devices").textContent()), info.wcount + info.wlcount);
  assert.ok((await page.locator("table").textContent()).includes(info.wifi1.devName));
  if (shots) {
    mkdirSync(shots, { recursive: true });
    await page.screenshot({ path: join(shots, "pages-overview.png"), fullPage: true });
  }
  // The open page reloads itself once the file changes, and runs the page as it is now.
  const reloaded = page.waitForEvent("load", { timeout: 10000 });
  edit("overview.lua", (text) => text.replace("<h1>Home overview</h1>", "<h1>Home overview, edited</h1>"));
  await reloaded;
  assert.equal(await page.locator("h1").textContent(), "Home overview, edited");
  await done();
});

test("Wi-Fi (handler page): the form changes the SSID and leaves 5 GHz as it was", async () => {
  const { page, done } = await open("wifi.lua");
  const before = await apiGet("wifiBasic");
  assert.equal(await page.locator("#ssid").inputValue(), before.ssid1);
  await page.locator("#ssid").fill("Attic & Garden");
  await page.locator("button").click();
  await page.locator("#note", { hasText: "Saved." }).waitFor();
  assert.equal(await page.locator("#current").textContent(), "Attic & Garden");
  const after = await apiGet("wifiBasic");
  assert.deepEqual([after.ssid1, after.ssid2, after.enbl2], ["Attic & Garden", before.ssid2, before.enbl2]);
  await done();
});

test("a page that raises: 500 with its traceback, file and line first, in the browser and on the terminal", async () => {
  // The write loses its security mode: the module names the missing field.
  edit("wifi.lua", (text) => text.replace("wifi_2G_auth = form.auth,", ""));
  const { page, done } = await open("wifi.lua", [500]);
  const failed = page.waitForResponse((r) => r.request().method() === "POST");
  await page.locator("button").click();
  assert.equal((await failed).status(), 500);
  const trace = await page.locator("#velconfig-error").textContent();
  const first = trace.split("\n")[0];
  assert.match(first, /^wifi\.lua:\d+: bad argument #-?\d+ to '[^']+' \(string expected for field 'wifi_2G_auth', got nil\)$/);
  assert.match(trace, /\nstack traceback:\n[^]*wifi\.lua:\d+: in function 'handle_request'/);
  assert.ok(terminal.includes("500 wifi.lua: " + first + "\nstack traceback:"), terminal);
  assert.equal((await apiGet("wifiSsid")).ssid, "Attic & Garden");
  await done();
});

test("the folder and the console under /velconfig/ keep the console's rules: the token, and no other origin", async () => {
  const auth = { Authorization: "Token " + token };
  assert.deepEqual(await Promise.all([status("/overview.lua"), status("/velconfig/api/get/hasWiFi"),
    status("/overview.lua", { ...auth, Origin: "http://127.0.0.1:1" }), status("/overview.lua", auth)]),
  [403, 403, 403, 200]);
});
