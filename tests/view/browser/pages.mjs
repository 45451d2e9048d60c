/** Opens the page in a browser, and reads what it shows. */
import assert from 'node:assert/strict';
import { createRequire } from 'node:module';
import { join } from 'node:path';

const { VANTOR_VIEW_TOOLS, CHROMIUM, SCREENSHOTS } = process.env;
const { chromium } = createRequire(join(VANTOR_VIEW_TOOLS, 'package.json'))('playwright-core');

/** What does not happen within so many milliseconds never happens; an idle machine needs a few seconds at most. */
const LONGEST = 60000;

export const launch = () => chromium.launch({
  executablePath: CHROMIUM,
  timeout: LONGEST,
  args: ['--headless', '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
    '--disable-component-update', '--disable-sync'],
});

/** The page in a window of its own. */
export class Page {
  /** Opens the address, and waits until frames are drawn, unless it must show something else. */
  static async open(browser, url, { width = 1280, height = 800, colorScheme = 'light', drawn = true } = {}) {
    const context = await browser.newContext({ viewport: { width, height }, colorScheme, acceptDownloads: true });
    const page = new Page(await context.newPage());
    page.tab.setDefaultTimeout(LONGEST);
    page.tab.on('pageerror', (error) => page.errors.push(String(error)));
    page.tab.on('console', (message) => message.type() === 'error' && page.errors.push(message.text()));
    await page.tab.goto(url);
    if (drawn) {
      await page.until(({ panels }) => panels.length > 0 && panels.every(({ pictures }) => pictures > 0));
    }
    return page;
  }

  constructor(tab) {
    this.tab = tab;
    /** Errors of the page's scripts. */
    this.errors = [];
  }

  /** The figures that the page publishes. */
  numbers() {
    return this.tab.evaluate(() => window.vantor.numbers());
  }

  /** Waits until the figures meet a condition, and returns them. Looks at them after each picture of the browser. */
  async until(condition) {
    const end = Date.now() + LONGEST;
    for (;;) {
      const numbers = await this.tab.evaluate(() => new Promise((resolve) => {
        requestAnimationFrame(() => resolve(window.vantor?.numbers()));
      }));
      if (numbers && condition(numbers)) {
        return numbers;
      }
      assert.ok(Date.now() < end, `never: ${condition}; ${JSON.stringify(numbers?.state)}`);
    }
  }

  /** Waits until this many more frames have arrived, and returns the figures. */
  async moreFrames(count) {
    const { frames } = await this.numbers();
    return this.until((now) => now.frames >= frames + count);
  }

  press(...keys) {
    return keys.reduce((before, key) => before.then(() => this.tab.keyboard.press(key)), Promise.resolve());
  }

  click(selector) {
    return this.tab.click(selector);
  }

  /** The text of an element. */
  text(selector) {
    return this.tab.locator(selector).innerText();
  }

  /** Waits until an element has a text that matches. */
  textBecomes(selector, pattern) {
    return this.tab.locator(selector).filter({ hasText: pattern }).waitFor();
  }

  /** Waits until a field has a value. */
  async valueBecomes(selector, value) {
    const end = Date.now() + LONGEST;
    while (await this.tab.inputValue(selector) !== value) {
      assert.ok(Date.now() < end, `${selector} is never ${value}`);
    }
  }

  /** The value in the strip of figures; null if it is not shown. */
  async figure(name) {
    const cells = await this.tab.locator('.figure:visible').evaluateAll((all) =>
      all.map((cell) => [cell.firstChild.textContent, cell.lastElementChild.textContent]));
    return new Map(cells).get(name) ?? null;
  }

  /** The number of colours in each visible canvas. */
  colours() {
    return this.tab.locator('.plot > .uplot canvas').evaluateAll((all) => all.map((canvas) => {
      const { data } = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height);
      return new Set(new Uint32Array(data.buffer)).size;
    }));
  }

  /** Saves the panels as a picture with `save`; returns the download, and the title in the picture. */
  async savedPanels(save) {
    await this.tab.evaluate(() => {
      const { fillText } = CanvasRenderingContext2D.prototype;
      CanvasRenderingContext2D.prototype.fillText = function record(text, ...rest) {
        window.title = text.includes('vantor ') ? text : window.title;
        fillText.call(this, text, ...rest);
      };
    });
    const [download] = await Promise.all([this.tab.waitForEvent('download'), save()]);
    return { download, title: await this.tab.evaluate(() => window.title) };
  }

  /** Saves a picture for people. */
  screenshot(name) {
    return this.tab.screenshot({ path: join(SCREENSHOTS, `${name}.png`) });
  }

  /** Closes the page, which must not have had errors, except of resources that a test made fail. */
  async close() {
    await this.tab.context().close();
    assert.deepEqual(this.errors.filter((text) => !/WebSocket connection|Failed to load resource/.test(text)), []);
  }
}
