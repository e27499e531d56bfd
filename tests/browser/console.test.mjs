// The web console end to end: `velconfig serve` on a fresh simulated gateway, its
// pages in headless Chromium, and its API over real HTTP.
import { test, before, after } from "node:test";
import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { mkdtempSync, readFileSync, rmSync, mkdirSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import http from "node:http";
import { chromium } from "playwright-core";

const tool = process.env.VELCONFIG_TOOL;
const shots = process.env.VELCONFIG_SCREENSHOT_DIR;
let server, base, port, browser, dir;

function startServer() {
  dir = mkdtempSync(join(tmpdir(), "velconfig-console-"));
  const child = spawn(tool, ["--state", join(dir, "gateway.json"), "serve", "--port", "0"], {
    env: { ...process.env, VELCONFIG_ROOT: join(dir, "root") },
    stdio: ["ignore", "pipe", "inherit"],
  });
  return new Promise((resolve, reject) => {
    let out = "";
    child.stdout.on("data", (chunk) => {
      out += chunk;
      const m = out.match(/http:\/\/127\.0\.0\.1:(\d+)\//);
      if (m) resolve([child, Number(m[1])]);
    });
    child.on("exit", (code) => reject(new Error("serve exited with " + code)));
  });
}

// A raw request, so the Host header can be anything.
function raw(method, path, { host, body } = {}) {
  return new Promise((resolve, reject) => {
    const req = http.request({ host: "127.0.0.1", port, method, path, headers: { Host: host ?? `127.0.0.1:${port}` } },
      (res) => {
        let data = "";
        res.on("data", (c) => (data += c));
        res.on("end", () => resolve({ status: res.statusCode, body: data ? JSON.parse(data) : null }));
      });
    req.on("error", reject);
    if (body !== undefined) req.write(body);
    req.end();
  });
}

async function apiGet(key, a1) {
  const r = await raw("GET", `/api/get/${key}` + (a1 ? `?a1=${encodeURIComponent(a1)}` : ""));
  assert.equal(r.status, 200);
  return r.body.answer;
}

before(async () => {
  [server, port] = await startServer();
  base = `http://127.0.0.1:${port}/`;
  browser = await chromium.launch({
    executablePath: process.env.CHROMIUM || "/usr/bin/chromium",
    args: ["--no-sandbox", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
      "--disable-component-update", "--disable-sync"],
  });
});

after(async () => {
  await browser?.close();
  server?.kill("SIGTERM");
  if (dir) rmSync(dir, { recursive: true, force: true });
});

test("listens on the loopback address only", () => {
  const hexPort = port.toString(16).toUpperCase().padStart(4, "0");
  const listening = readFileSync("/proc/net/tcp", "utf8").split("\n").slice(1)
    .map((l) => l.trim().split(/\s+/)).filter((f) => f.length > 3 && f[3] === "0A" && f[1].endsWith(":" + hexPort));
  assert.deepEqual(listening.map((f) => f[1]), ["0100007F:" + hexPort]);
  const tcp6 = readFileSync("/proc/net/tcp6", "utf8");
  assert.ok(!tcp6.includes(":" + hexPort + " "), "nothing on IPv6");
});

test("the API refuses what it should", async () => {
  assert.equal((await raw("GET", "/api/get/gwIPs", { host: "evil.example" })).status, 403);
  const bad = await raw("POST", "/api/set/lan", { body: "{not json" });
  assert.deepEqual([bad.status, bad.body.error], [400, "the body is not JSON"]);
  const luaError = await raw("POST", "/api/set/lan", { body: '{"lanIp": 5, "dhcpEnbl": {}}' });
  assert.equal(luaError.status, 400);
  assert.match(luaError.body.error, /^bad argument #-2 to 'set' \(string expected, got table\)$/);
  assert.deepEqual((await raw("GET", "/api/get/noSuchKey")).body, { key: "noSuchKey", answer: null });
  assert.equal((await raw("POST", "/api/set/noSuchKey", { body: "" })).body.result, 1);
  assert.equal((await raw("GET", "/no/such/route")).status, 404);
});

test("the overview shows the simulated devices with live rates", async () => {
  const page = await browser.newPage({ viewport: { width: 1100, height: 900 } });
  await page.goto(base + "#overview");
  await page.waitForFunction(() => Number(document.querySelector("#refresh-count").textContent) >= 2, null,
    { timeout: 20000 });
  const rows = await page.locator("#devices tr.device").count();
  assert.ok(rows >= 3, `devices listed: ${rows}`);
  const downs = await page.locator("#devices td.down").allTextContents();
  assert.ok(downs.some((t) => !t.startsWith("0 ")), "some device has a non-zero rate: " + downs.join(", "));
  if (shots) {
    mkdirSync(shots, { recursive: true });
    await page.screenshot({ path: join(shots, "console-overview.png"), fullPage: true });
  }
  await page.close();
});

test("the Wi-Fi form writes the SSID through wifiBasic", async () => {
  const page = await browser.newPage();
  await page.goto(base + "#wifi");
  const ssid = page.locator('input[name="wifi_2G_ssid"]');
  await ssid.waitFor();
  await page.waitForFunction(() => document.querySelector('input[name="wifi_2G_ssid"]').value !== "");
  await ssid.fill("Console-Test-SSID");
  await page.click("#wifi-form button[type=submit]");
  await page.locator("#wifi-result.ok").waitFor();
  assert.equal((await apiGet("wifiSsid")).ssid, "Console-Test-SSID");
  await page.close();
});

test("a port-mapping rule is added and deleted from the table", async () => {
  const page = await browser.newPage();
  await page.goto(base + "#portmap");
  await page.locator("#rules tr.rule").first().waitFor();
  const before = await page.locator("#rules tr.rule").count();
  await page.fill('#rule-form input[name="desp"]', "Browser-Rule");
  await page.fill('#rule-form input[name="client"]', "192.168.1.77");
  await page.fill('#rule-form input[name="exPort"]', "9090");
  await page.fill('#rule-form input[name="inPort"]', "90");
  await page.click("#rule-form button[type=submit]");
  const row = page.locator("#rules tr.rule", { hasText: "Browser-Rule" });
  await row.waitFor();
  assert.equal(await page.locator("#rules tr.rule").count(), before + 1);
  assert.ok(Object.values(await apiGet("pmLists")).some((r) => r && r.desp === "Browser-Rule"));
  await row.locator("button.delete").click();
  await row.waitFor({ state: "detached" });
  assert.ok(!Object.values(await apiGet("pmLists")).some((r) => r && r.desp === "Browser-Rule"));
  await page.close();
});

test("the file manager creates a folder on the disk", async () => {
  const page = await browser.newPage();
  await page.goto(base + "#files");
  await page.waitForFunction(() => document.querySelector("#folder").textContent.startsWith("/"));
  const root = await page.locator("#folder").textContent();
  await page.fill('#folder-form input[name="name"]', "from-browser");
  await page.click("#folder-form button[type=submit]");
  await page.locator("#entries tr.entry", { hasText: "from-browser" }).waitFor();
  const listing = await apiGet("subFiles", root);
  assert.ok(Object.values(listing).some((f) => f && f.name === "from-browser" && f.isFolder));
  await page.close();
});
