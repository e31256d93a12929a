// Drives Debian's Chromium, headless, for the tests: one JSON command per line on stdin, one
// JSON answer per line on stdout ({"id", "ok", "value"} or {"id", "ok": false, "error"}).
// Each named context is a separate browser profile with one page (a phone, a second phone).
//   usage: node browser.mjs   (scripts/deps installs playwright-core beside it)
import { createInterface } from 'node:readline';
import { chromium } from 'playwright-core';

const browser = await chromium.launch({
  executablePath: process.env.VELM_CHROMIUM || '/usr/bin/chromium',
  headless: true,
  // As root in CI there is no sandbox; the machine's network is closed, so nothing in the
  // background may try to reach out.
  args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
    '--disable-background-networking', '--disable-component-update', '--disable-sync',
    '--disable-dev-shm-usage'],
});

const contexts = new Map();
const page = (name) => {
  const entry = contexts.get(name);
  if (!entry) throw new Error(`no context ${name}`);
  return entry.page;
};

const commands = {
  async open({ context, url, width = 360, height = 740, locale = 'en-US', colorScheme = 'light' }) {
    const ctx = await browser.newContext({
      viewport: { width, height }, deviceScaleFactor: 2, isMobile: true, hasTouch: true,
      locale, colorScheme,
    });
    const p = await ctx.newPage();
    p.setDefaultTimeout(15000);
    const errors = [];
    p.on('pageerror', (error) => errors.push(`page error: ${error.message}`));
    p.on('console', (message) => {
      if (message.type() === 'error') errors.push(`console: ${message.text()}`);
    });
    contexts.set(context, { ctx, page: p, errors });
    const response = await p.goto(url);
    return response ? response.status() : 0;
  },
  async click({ context, selector }) {
    await page(context).locator(selector).first().click();
  },
  async fill({ context, selector, text }) {
    await page(context).locator(selector).first().fill(text);
  },
  async press({ context, selector, key }) {
    await page(context).locator(selector).first().press(key);
  },
  async waitVisible({ context, selector }) {
    await page(context).locator(selector).first().waitFor({ state: 'visible' });
  },
  async waitHidden({ context, selector }) {
    await page(context).locator(selector).first().waitFor({ state: 'hidden' });
  },
  // Waits until the element's text contains the text.
  async waitText({ context, selector, text }) {
    await page(context).waitForFunction(
      ([s, t]) => [...document.querySelectorAll(s)].some((e) => e.textContent.includes(t)),
      [selector, text]);
  },
  async waitValue({ context, selector, value }) {
    await page(context).waitForFunction(
      ([s, v]) => document.querySelector(s)?.value === v, [selector, value]);
  },
  async text({ context, selector }) {
    return page(context).locator(selector).first().textContent();
  },
  async texts({ context, selector }) {
    return page(context).locator(selector).allTextContents();
  },
  async count({ context, selector }) {
    return page(context).locator(selector).count();
  },
  async visible({ context, selector }) {
    return page(context).locator(selector).first().isVisible();
  },
  async attribute({ context, selector, name }) {
    return page(context).locator(selector).first().getAttribute(name);
  },
  // Sets a control's value as a person dragging it would, ending with "change".
  async setValue({ context, selector, value }) {
    await page(context).locator(selector).first().evaluate((element, v) => {
      element.value = v;
      element.dispatchEvent(new Event('input', { bubbles: true }));
      element.dispatchEvent(new Event('change', { bubbles: true }));
    }, value);
  },
  async setChecked({ context, selector, checked }) {
    await page(context).locator(selector).first().setChecked(checked);
  },
  async evaluate({ context, expression }) {
    return page(context).evaluate(expression);
  },
  async drag({ context, selector, dy }) {
    const box = await page(context).locator(selector).first().boundingBox();
    const x = box.x + box.width / 2;
    const y = box.y + box.height / 2 - dy / 2;
    const p = page(context);
    await p.mouse.move(x, y);
    await p.mouse.down();
    await p.mouse.move(x, y + dy, { steps: 10 });
    await p.mouse.up();
  },
  async reload({ context }) {
    await page(context).reload();
  },
  async screenshot({ context, path }) {
    await page(context).screenshot({ path });
  },
  async errors({ context }) {
    return contexts.get(context)?.errors ?? [];
  },
  async close({ context }) {
    const entry = contexts.get(context);
    contexts.delete(context);
    if (entry) await entry.ctx.close();
  },
};

const out = (object) => process.stdout.write(`${JSON.stringify(object)}\n`);
out({ id: 0, ok: true, value: browser.version() });
for await (const line of createInterface({ input: process.stdin })) {
  if (!line.trim()) continue;
  const command = JSON.parse(line);
  try {
    const run = commands[command.do];
    if (!run) throw new Error(`unknown command ${command.do}`);
    out({ id: command.id, ok: true, value: (await run(command)) ?? null });
  } catch (error) {
    out({ id: command.id, ok: false, error: String(error?.message ?? error) });
  }
}
await browser.close();
