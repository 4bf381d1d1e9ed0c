// Runs Debian's Chromium without a window, and has the checks for every state of the page.

import axe from 'axe-core';
import assert from 'node:assert/strict';
import { existsSync, mkdirSync } from 'node:fs';
import { join } from 'node:path';
import puppeteer, { type Browser, type Page } from 'puppeteer-core';
import { project } from './fake-engine.js';

const chromium = '/usr/bin/chromium';
const pictures = join(project, 'build/shell/pictures');
const usual = { width: 820, height: 760 };
// The limit after which a missing state fails the test. It doesn't measure speed.
const patience = 20_000;
// As a 1280-pixel screen at 400 %, and as phones.
const narrow = { width: 320, height: 640 };

export function launch(): Promise<Browser> {
  assert.ok(existsSync(chromium), `${chromium} is missing; as root run: apt-get install chromium fonts-inter (./dev test does)`);
  mkdirSync(pictures, { recursive: true });
  // Chromium's sandbox doesn't work for root. Without a screen, the graphics processor isn't needed.
  const args = ['--disable-gpu', '--disable-dev-shm-usage', ...(process.getuid?.() === 0 ? ['--no-sandbox'] : [])];
  return puppeteer.launch({ executablePath: chromium, pipe: true, args, protocolTimeout: 3 * patience });
}

// A page in a separate context, by default in English. `end` fails after an error of the page's script or policy.
export class Visit {
  readonly errors: string[] = [];

  private constructor(readonly page: Page) {
    page.on('pageerror', (error) => this.errors.push(String(error)));
    page.on('console', (message) => {
      if (message.type() === 'error') this.errors.push(message.text());
    });
  }

  static async open(browser: Browser, address: URL, languages = ['en-GB']): Promise<Visit> {
    const context = await browser.createBrowserContext();
    const visit = new Visit(await context.newPage());
    await visit.page.evaluateOnNewDocument((tags) => Object.defineProperty(navigator, 'languages', { get: () => tags }), languages);
    visit.page.setDefaultTimeout(patience);
    await visit.page.setViewport(usual);
    await visit.page.goto(address.href);
    return visit;
  }

  async end(): Promise<void> {
    await this.page.browserContext().close();
    assert.deepEqual(this.errors, []);
  }

  // Waits until the element's text contains all parts.
  async reads(selector: string, ...parts: string[]): Promise<void> {
    await this.page.waitForFunction(
      (css, wanted) => wanted.every((part) => document.querySelector(css)?.textContent?.includes(part)), {}, selector, parts,
    ).catch(async () => assert.fail(`${selector} lacks ${parts.join(', ')} in: ${await this.text(selector)}`));
  }

  async text(selector: string): Promise<string> {
    return this.page.evaluate((css) => document.querySelector(css)?.textContent ?? 'nothing', selector);
  }

  texts(selector: string): Promise<string[]> {
    return this.page.$$eval(selector, (elements) => elements.map((element) => element.textContent ?? ''));
  }

  // Gives this status to the page's next request of `path`, instead of sending it to the server.
  async answer(path: string, status: number): Promise<void> {
    await this.page.setRequestInterception(true);
    this.page.on('request', (request) => void (request.url().endsWith(path) ? request.respond({ status }) : request.continue()));
  }

  // The number of requests of `path` from now on.
  counted(path: string): () => number {
    let count = 0;
    this.page.on('request', (request) => { if (request.url().endsWith(path)) count += 1; });
    return () => count;
  }

  // Finds the element by its role and accessible name, as a screen reader does.
  async press(name: string, role = 'button'): Promise<void> {
    await this.page.locator(`::-p-aria([name="${name}"][role="${role}"])`).click();
  }

  async has(name: string, role = 'button'): Promise<boolean> {
    return (await this.page.$(`::-p-aria([name="${name}"][role="${role}"])`)) !== null;
  }

  // Presses Tab until the element with this name has the focus. The focus must be visible at each step.
  async tabTo(name: string): Promise<void> {
    const passed: string[] = [];
    while (passed.length < 40) {
      await this.page.keyboard.press('Tab');
      passed.push(await this.focused());
      assert.ok(await this.focusIsVisible(), passed.at(-1));
      assert.ok(await this.focusIsUncovered(), `the bar covers ${passed.at(-1)}`);
      if (passed.at(-1) === name) return;
    }
    assert.fail(`Tab doesn't reach ${name}; it reaches ${passed.join(', ')}`);
  }

  async focused(): Promise<string> {
    const nodes = [await this.page.accessibility.snapshot()];
    for (let node = nodes.pop(); node; node = nodes.pop()) {
      if (node.focused && node.role !== 'RootWebArea') return node.name ?? '';
      nodes.push(...(node.children ?? []));
    }
    return '';
  }

  private focusIsVisible(): Promise<boolean> {
    return this.page.evaluate(() => document.activeElement === document.body || getComputedStyle(document.activeElement!).outlineStyle !== 'none');
  }

  // The sticky bar doesn't overlap the focused element, unless it contains it.
  private focusIsUncovered(): Promise<boolean> {
    return this.page.evaluate(() => {
      const bar = document.querySelector('.bar');
      const focused = document.activeElement!;
      if (!bar || focused === document.body || bar.contains(focused) || focused.closest('dialog')) return true;
      const [upper, lower] = [focused.getBoundingClientRect(), bar.getBoundingClientRect()];
      return upper.bottom <= lower.top || upper.top >= lower.bottom;
    });
  }

  async acceptTerms(): Promise<void> {
    await this.press('I have read this and agree', 'checkbox');
    await this.press('Continue');
    await this.reads('h2', 'Choose');
  }

  // Checks accessibility in both themes and that a narrow window cuts nothing off. Takes a picture of each.
  async look(name: string): Promise<void> {
    for (const theme of ['light', 'dark']) {
      await this.page.emulateMediaFeatures([{ name: 'prefers-color-scheme', value: theme }, { name: 'prefers-reduced-motion', value: 'reduce' }]);
      await this.expectAccessible(`${name}, ${theme}`);
      await this.page.screenshot({ path: join(pictures, `${name}-${theme}.png`) as `${string}.png` });
    }
    await this.page.setViewport(narrow);
    await this.expectNothingCutOff(name);
    await this.page.screenshot({ path: join(pictures, `${name}-narrow.png`) as `${string}.png` });
    await this.page.setViewport(usual);
  }

  private async expectAccessible(state: string): Promise<void> {
    await this.page.evaluate(axe.source);
    const { violations } = await this.page.evaluate(() => (window as unknown as { axe: typeof axe }).axe.run());
    assert.deepEqual(violations.map(({ id, nodes }) => [id, nodes.map((node) => node.html)]), [], state);
  }

  private async expectNothingCutOff(state: string): Promise<void> {
    const beyond = await this.page.evaluate(() => [...document.querySelectorAll('#shell *, dialog[open] *')]
      .filter((element) => element.getBoundingClientRect().right > window.innerWidth + 0.5).map((element) => element.outerHTML.slice(0, 120)));
    assert.deepEqual(beyond, [], state);
  }
}
