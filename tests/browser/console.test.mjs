// The web console in headless Chromium: `velconfig serve` on a fresh simulated
// gateway, opened at the address it prints; one scenario per page, each failing on
// any page error, console error or failed request, named by its page. The API's
// refusals over plain HTTP are in tests/console_test.lua.
import { test, before, after } from "node:test";
import assert from "node:assert/strict";
import { spawn, execFileSync } from "node:child_process";
import { mkdtempSync, rmSync, mkdirSync, readFileSync, writeFileSync } from "node:fs";
import { tmpdir } from "node:os";
import { join } from "node:path";
import http from "node:http";
import { chromium } from "playwright-core";

const tool = process.env.VELCONFIG_TOOL;
const shots = process.env.VELCONFIG_SCREENSHOT_DIR;
let server, base, token, browser, context, dir;

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
      const m = out.match(/(http:\/\/127\.0\.0\.1:\d+\/)\?token=([0-9a-f]+)/);
      if (m) resolve([child, m[1], m[2]]);
    });
    child.on("exit", (code) => reject(new Error("serve exited with " + code)));
  });
}

// The gateway's state as a script sees it, with the token in the header.
function apiGet(key, a1) {
  const path = `/api/get/${key}` + (a1 ? `?a1=${encodeURIComponent(a1)}` : "");
  return new Promise((resolve, reject) => {
    http.get(new URL(path, base), { headers: { Authorization: "Token " + token } }, (res) => {
      let data = "";
      res.on("data", (c) => (data += c));
      res.on("end", () => (res.statusCode === 200 ? resolve(JSON.parse(data).answer) : reject(new Error(data))));
    }).on("error", reject);
  });
}

// A write as a script makes it.
function apiSet(key, input) {
  return new Promise((resolve, reject) => {
    const req = http.request(new URL(`/api/set/${key}`, base), { method: "POST",
      headers: { Authorization: "Token " + token, "Content-Type": "application/json" } }, (res) => {
      let data = "";
      res.on("data", (c) => (data += c));
      res.on("end", () => (res.statusCode === 200 ? resolve(JSON.parse(data).result) : reject(new Error(data))));
    });
    req.on("error", reject);
    req.end(JSON.stringify(input));
  });
}

// The world changes under the running console: an event on the served state file.
function event(...words) {
  return execFileSync(tool, ["--state", join(dir, "gateway.json"), "event", ...words],
    { env: { ...process.env, VELCONFIG_ROOT: join(dir, "root") } }).toString();
}

const rules = async () => Object.values(await apiGet("pmLists")).filter((r) => r && r.desp);

// A page of the console with everything that goes wrong in it collected.
// expected: answers of 400 and over that the scenario provokes, by the end of their address.
async function open(name, viewport = { width: 1100, height: 900 }, expected = []) {
  const page = await context.newPage({ viewport });
  const problems = [];
  page.on("pageerror", (e) => problems.push("page error: " + e.message));
  // A failed load is also an answer of 400 or more, judged below by its address.
  page.on("console", (m) => {
    if (m.type() === "error" && !(expected.length && m.text().startsWith("Failed to load resource"))) {
      problems.push("console error: " + m.text());
    }
  });
  page.on("requestfailed", (r) => problems.push("failed request: " + r.url() + " " + r.failure()?.errorText));
  page.on("response", (r) => {
    if (r.status() >= 400 && !expected.some((end) => r.url().endsWith(end))) problems.push(`answer ${r.status()}: ${r.url()}`);
  });
  page.on("dialog", (d) => d.accept());
  await page.setViewportSize(viewport);
  await page.goto(base + "#" + name);
  const check = () => assert.deepEqual(problems, [], name + " page");
  return { page, check, done: async () => { check(); await page.close(); } };
}

async function shoot(page, file) {
  if (!shots) return;
  mkdirSync(shots, { recursive: true });
  await page.screenshot({ path: join(shots, file), fullPage: true });
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
  // Opening the printed address leaves the session cookie in this context.
  context = await browser.newContext();
  const page = await context.newPage();
  await page.goto(base + "?token=" + token);
  assert.equal(page.url(), base);
  await page.close();
});

after(async () => {
  await browser?.close();
  server?.kill("SIGTERM");
  if (dir) rmSync(dir, { recursive: true, force: true });
});

// What shows that each page has its data.
const READY = {
  overview: "#devices tr.device", status: "#status-table tr", wifi: '#wifi-form select[name="wifi_2G_auth"] option',
  portmap: "#rules tr.rule", files: "#entries tr.entry", explorer: "#explorer-form option",
};

test("every page at 375 px: loads without errors, no sideways scrolling, its tab marked", async () => {
  for (const name of Object.keys(READY)) {
    const { page, done } = await open(name, { width: 375, height: 800 });
    await page.locator(READY[name]).first().waitFor({ state: "attached" });
    await page.waitForLoadState("networkidle");
    const { scroll, width } = await page.evaluate(() =>
      ({ scroll: document.documentElement.scrollWidth, width: document.documentElement.clientWidth }));
    assert.ok(scroll <= width, `${name} page scrolls sideways: ${scroll} > ${width}`);
    assert.equal(await page.getAttribute(`nav a[href="#${name}"]`, "aria-current"), "page", name + " page tab");
    // a table cut off at the screen's edge says that it scrolls
    for (const box of await page.locator(".page.active .scroll").all()) {
      const cut = await box.evaluate((b) => b.scrollWidth > b.clientWidth + 1);
      const hint = box.locator("xpath=preceding-sibling::*[1][contains(@class, 'scroll-hint')]");
      assert.equal(cut && await hint.isVisible(), cut, `${name} page: a table cut off without a scroll hint`);
    }
    if (name === "overview" || name === "portmap") {
      assert.ok(await page.locator(".page.active .scroll-hint").first().isVisible(), name + " page: scroll hint at 375 px");
    }
    if (name === "files") {
      // sizes and dates on one line, and the folder icon drawn without an emoji font
      const lines = await page.locator("#entries td.time, #entries td.num").evaluateAll((cells) => cells
        .filter((c) => c.textContent).map((c) => c.getBoundingClientRect().height / parseFloat(getComputedStyle(c).lineHeight)));
      assert.ok(lines.length > 0 && lines.every((n) => n < 2.2), "files page: a size or date wraps: " + lines);
      assert.ok(await page.locator("#entries tr.entry svg.icon").first().isVisible(), "files page: folder icon");
    }
    await done();
  }
});

test("overview: live rates, sizes with units, an offline banner when the server stops answering, a state banner when its file is broken", async () => {
  const { page, check } = await open("overview");
  await page.waitForFunction(() => Number(document.querySelector("#refresh-count").textContent) >= 2, null,
    { timeout: 20000 });
  const downs = await page.locator("#devices td.down").allTextContents();
  assert.ok(downs.some((t) => !t.startsWith("0 ")), "overview: a device has a non-zero rate: " + downs.join(", "));
  assert.match(await page.locator("#disks td.num").first().textContent(), /^\d+(\.\d)? [KMGT]iB$/);
  await shoot(page, "console-overview.png");
  assert.ok(await page.locator("#offline").isHidden());
  check();
  // The server's answers cut off in the browser: the banner shows, and goes when they come back.
  await page.route("**/api/**", (route) => route.abort("connectionrefused"));
  await page.locator("#offline").waitFor({ state: "visible", timeout: 10000 });
  await page.unroute("**/api/**");
  await page.locator("#offline").waitFor({ state: "hidden", timeout: 10000 });
  // A state file that cannot be read (a hand-edit typo): the reason in a banner, never
  // an empty gateway; mended, the page recovers by itself.
  const file = join(dir, "gateway.json");
  const saved = readFileSync(file);
  writeFileSync(file, "{ \"model\": ");
  await page.locator("#state").waitFor({ state: "visible", timeout: 10000 });
  assert.notEqual((await page.locator("#state-problem").textContent()).trim(), "");
  writeFileSync(file, saved);
  await page.locator("#state").waitFor({ state: "hidden", timeout: 10000 });
  await page.close(); // the refused requests above were on purpose
});

test("status: values in words, the running time as it is, disks named as on the overview, black-listed devices said", async () => {
  const mac = "001132C4D502"; // NAS-HOME, wired
  assert.equal(await apiSet("hostSettings", { type: "black", mac }), 0);
  const { page, done } = await open("status");
  const row = (label) => page.locator("#status-table tr", { hasText: label }).locator("td").textContent();
  await page.locator("#status-table tr").first().waitFor();
  assert.equal(await row("MAC address"), "A4:C1:E2:00:3F:10");
  assert.match(await row("System time"), /^running for \d+ d \d+ h \d+ min$/);
  // the built-in gateway has one black-listed wired device online already; NAS-HOME makes two
  assert.match(await row("Wired devices"), /^\d+ \(2 of them are black-listed: no Internet access\)$/);
  assert.doesNotMatch(await row("Wireless devices"), /black-listed/);
  const overview = await apiGet("allInfo");
  const disks = await page.locator("#status-table th", { hasText: /^Disk / }).allTextContents();
  assert.deepEqual(disks.map((d) => d.replace(/^Disk /, "").replace(/ \(.*\)$/, "")),
    [overview.storage1.name, overview.storage2.name]);
  assert.equal(await apiSet("rmBlackHost", { mac }), 0);
  assert.equal(await row("Software version"), (await apiGet("gwInfo", "all")).SWVer);
  assert.equal(await page.locator("#status-table", { hasText: "SWVer" }).count(), 0);
  await done();
});

test("Wi-Fi: a 200-character SSID is refused and nothing changes; a good one is saved", async () => {
  const { page, done } = await open("wifi");
  const ssid = page.locator('input[name="wifi_2G_ssid"]');
  await page.waitForFunction(() => document.querySelector('input[name="wifi_2G_ssid"]').value !== "");
  const before = (await apiGet("wifiSsid")).ssid;
  const password = page.locator('input[name="wifi_2G_passwd"]');
  assert.equal(await password.getAttribute("type"), "password");
  await page.locator("#wifi fieldset").first().locator("button.reveal").click();
  assert.equal(await password.getAttribute("type"), "text");
  await ssid.fill("x".repeat(200));
  await page.click("#wifi-form button[type=submit]");
  assert.match(await page.locator("#wifi-result.bad").textContent(), /^refused: .*1 to 32 bytes/);
  assert.equal((await apiGet("wifiSsid")).ssid, before);
  await ssid.fill("Console-Test-SSID");
  await page.click("#wifi-form button[type=submit]");
  assert.equal(await page.locator("#wifi-result.ok").textContent(), "saved");
  assert.equal((await apiGet("wifiSsid")).ssid, "Console-Test-SSID");
  await done();
});

test("port mapping: a bad port is refused, a rule is added (form cleared), disabled, enabled and deleted", async () => {
  const { page, done } = await open("portmap");
  await page.locator("#rules tr.rule").first().waitFor();
  const count = (await rules()).length;
  const fill = async (values) => {
    for (const [name, value] of Object.entries(values)) await page.fill(`#rule-form input[name="${name}"]`, value);
    await page.click("#rule-form button[type=submit]");
  };
  await fill({ desp: "Browser-Rule", client: "192.168.1.77", exPort: "70000", inPort: "90" });
  assert.match(await page.locator("#rule-result.bad").textContent(), /^refused: the external port/);
  await fill({ exPort: "9090" });
  const row = page.locator("#rules tr.rule", { hasText: "Browser-Rule" });
  await row.waitFor();
  assert.equal(await page.inputValue('#rule-form input[name="desp"]'), "", "the form is cleared after the add");
  assert.equal((await rules()).length, count + 1);
  await row.locator("button.toggle").click();
  await row.locator("td.state", { hasText: "off" }).waitFor();
  assert.equal((await rules()).find((r) => r.desp === "Browser-Rule").enable, 0);
  await page.click("#rules-enable");
  await page.locator("#rule-result.ok", { hasText: "all rules enabled" }).waitFor();
  assert.ok((await rules()).every((r) => r.enable === 1));
  await row.locator("button.delete").click();
  await row.waitFor({ state: "detached" });
  assert.equal((await rules()).length, count);
  await done();
});

test("files: a refused folder keeps the listing and says why; a folder is created, then deleted", async () => {
  const { page, done } = await open("files");
  await page.locator("#entries tr.entry").first().waitFor();
  const root = await page.locator("#folder").textContent();
  const entries = await page.locator("#entries tr.entry").count();
  await page.fill('#folder-form input[name="name"]', "a/b");
  await page.click("#folder-form button[type=submit]");
  assert.match(await page.locator("#files-result.bad").textContent(), /^refused: .*cannot contain \//);
  assert.equal(await page.locator("#entries tr.entry").count(), entries);
  await page.fill('#folder-form input[name="name"]', "from-browser");
  await page.click("#folder-form button[type=submit]");
  const row = page.locator("#entries tr.entry", { hasText: "from-browser" });
  await row.waitFor();
  assert.ok(Object.values(await apiGet("subFiles", root)).some((f) => f?.name === "from-browser" && f.isFolder));
  await row.locator("button.delete").click();
  await row.waitFor({ state: "detached" });
  assert.equal(await page.locator("#files-result.ok").textContent(), "deleted from-browser");
  await done();
});

test("explorer: a read key and a write key called, the answers shown, a missed field named", async () => {
  const { page, done } = await open("explorer", undefined, ["/api/set/lan"]);
  const form = page.locator("#explorer-form");
  await form.locator("option").first().waitFor({ state: "attached" });
  for (const name of ["lan", "iptv", "wifiBasic"]) {
    for (const call of ["get", "set"]) assert.equal(await form.locator("option", { hasText: `${call} ${name}` }).count(), 1);
  }
  await form.locator('select[name="key"]').selectOption({ label: "set lan" });
  assert.ok(await form.locator('input[name="a1"]').isHidden(), "a1 hidden for a write key");
  assert.ok(await form.locator('textarea[name="body"]').isVisible());
  await form.locator('select[name="key"]').selectOption({ label: "get gwInfo" });
  assert.ok(await form.locator('textarea[name="body"]').isHidden(), "the input hidden for a read key");
  await form.locator('input[name="a1"]').fill("all");
  await form.locator("button[type=submit]").click();
  await page.locator("#explorer-result.ok").waitFor();
  assert.equal(JSON.parse(await page.locator("#answer").textContent()).ssid2g, (await apiGet("gwInfo", "all")).ssid2g);
  await shoot(page, "console-explorer.png");
  await form.locator('select[name="key"]').selectOption({ label: "set pmSetAll" });
  await form.locator('textarea[name="body"]').fill('{"op": "disable"}');
  await form.locator("button[type=submit]").click();
  await page.locator("#explorer-result.ok", { hasText: "done" }).waitFor();
  assert.ok((await rules()).every((r) => r.enable === 0));
  // Each field explained beside the form; a write that misses one names it.
  await form.locator('select[name="key"]').selectOption({ label: "set lan" });
  assert.match(await page.locator("#key-fields").textContent(), /dhcpEnbl"1" runs the DHCP server/);
  await form.locator('textarea[name="body"]').fill('{"dhcpEnbl": "1"}');
  await form.locator("button[type=submit]").click();
  await page.locator("#explorer-result", { hasText: "string expected for field 'oldLanIp', got nil" }).waitFor();
  await done();
});

test("files: a disk pulled out while the page is open leaves it; plugged back, it returns with its files", async () => {
  const { page, done } = await open("files");
  await page.locator("#entries tr.entry").first().waitFor();
  const disk = await page.locator("#disk option:checked").textContent();
  assert.match(event("usb-unplug", "2"), /unplugged/);
  await page.locator("#files-result.bad", { hasText: disk + " was unplugged" }).waitFor({ timeout: 10000 });
  assert.equal(await page.locator("#disk option", { hasText: disk }).count(), 0);
  assert.notEqual(await page.locator("#folder").textContent(), "/mnt/usb1_1");
  assert.match(event("usb-plug"), /plugged in again/);
  await page.locator("#disk option", { hasText: disk }).waitFor({ state: "attached", timeout: 10000 });
  await done();
});

// A page of another local site: a form POST, a no-cors fetch and an image aimed at
// the console, from a browser that holds the console's cookie.
function attackPage(target) {
  return `<!doctype html><body>
<img src="${target}api/get/newFolder?a1=/mnt/usb1_1/pwned">
<iframe name="sink" title="sink"></iframe>
<form method="POST" action="${target}api/set/wifiBasic" enctype="text/plain" target="sink">
<input name='{"wifi_dualBand":"0","wifi_2G_enbl":"1","wifi_2G_auth":"Open","wifi_2G_strength":"3","wifi_2G_passwd":"","wifi_2G_ssid":"pwned","x":"' value='"}'></form>
<script>
fetch("${target}api/set/pmSetSingle", { method: "POST", mode: "no-cors", headers: { "Content-Type": "text/plain" },
  body: JSON.stringify({ op: "add", desp: "pwned", client: "192.168.1.66", protocol: "TCP", exPort: "2222", inPort: "22" }) })
  .finally(() => document.forms[0].submit());
</script></body>`;
}

test("another local origin cannot change the gateway: form POST, fetch and image refused", async () => {
  const html = attackPage(base);
  const servers = [];
  for (const host of ["127.0.0.1", "127.0.0.2"]) {
    const s = http.createServer((req, res) => res.end(html));
    await new Promise((resolve) => s.listen(0, host, resolve));
    servers.push(s);
  }
  const before = { ssid: (await apiGet("wifiSsid")).ssid, rules: (await rules()).length };
  try {
    for (const s of servers) {
      const { address, port } = s.address();
      const page = await context.newPage();
      const statuses = [];
      page.on("response", (r) => { if (r.url().startsWith(base + "api/")) statuses.push(r.status()); });
      const posted = page.waitForResponse((r) => r.url().endsWith("/api/set/wifiBasic"));
      await page.goto(`http://${address}:${port}/`);
      assert.equal((await posted).status(), 403, `form POST from ${address}`);
      assert.ok(statuses.length >= 2 && statuses.every((s) => s === 403), `from ${address}: ${statuses}`);
      await page.close();
    }
  } finally {
    for (const s of servers) s.close();
  }
  assert.deepEqual({ ssid: (await apiGet("wifiSsid")).ssid, rules: (await rules()).length }, before);
  assert.ok(!Object.values(await apiGet("subFiles", "/mnt/usb1_1")).some((f) => f?.name === "pwned"));
});
