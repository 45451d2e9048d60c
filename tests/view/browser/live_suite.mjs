/** Every button, field and key of the page, with a server. */
import assert from 'node:assert/strict';
import { existsSync, readFileSync } from 'node:fs';
import { join } from 'node:path';
import { describe, test } from 'node:test';
import { configuration } from './documents.mjs';
import { Page } from './pages.mjs';
import { run } from './programs.mjs';
import { simulated, useView } from './suite.mjs';

describe('live view', () => {
  let browser;
  let directory;
  let page;
  let view;

  useView(simulated(configuration({}, 2)), (used) => { ({ browser, directory, page, view } = used); });

  test('frames arrive, and are drawn', async () => {
    const { panels, frames } = await page.moreFrames(20);
    assert.equal(panels.length, 2);
    for (const { item, point, level, held } of panels) {
      const { start_m: start, step_m: step } = item.subsweeps[0];
      assert.ok(Math.abs(start + point * step - 0.5) < 0.02, `the strongest echo is at point ${point}`);
      level.forEach((value, i) => assert.ok(held[i] >= value));
    }
    await page.until(({ state }) => state.frames >= frames);
    assert.equal((await page.numbers()).unreadable, 0);
    (await page.colours()).forEach((count) => assert.ok(count > 8, `${count} colours`));
    assert.equal(await page.figure('server'), 'connected');
    await page.textBecomes('#time', /^live/);
    await page.screenshot('live-light');
  });

  test('frames have their time in UTC, with its bound', async () => {
    const { panels: [{ utc, bound }] } = await page.until(({ panels: [panel] }) => panel.bound < 0.1);
    assert.ok(Math.abs(utc - Date.now() / 1000) < 600, `${utc} s`);
    assert.ok(bound > 0);
    await page.textBecomes('#figures', /measured\d\d:\d\d:\d\d\.\d{4} UTC ± \d+\.\d ms/);
    const map = page.tab.locator('.item').first().locator('.plot').nth(1);
    const { width, height } = await map.boundingBox();
    await map.click({ position: { x: width / 2, y: 8 } });
    await page.until(({ panels: [{ cursors }] }) => / \d\d:\d\d:\d\d\.\d{4} UTC( |$)/.test(cursors.readings[0]));
    await page.press('x');
  });

  test('the picture stands still, and frames go on', async () => {
    await page.press('Space');
    const { panels: [{ tick }] } = await page.until(({ frozen }) => frozen);
    await page.moreFrames(10);
    await page.press('1', ...Array(5).fill('ArrowUp'));
    const later = await page.until(({ panels: [{ cursors: { a } }] }) => a.seconds !== null);
    assert.equal(later.panels[0].tick, tick);
    // A cursor reads no frame that is not shown yet.
    assert.match(later.panels[0].cursors.readings[0], / 0\.00 s/);
    await page.press('x');
    assert.equal(await page.text('#pause'), 'Continue');
    await page.click('#pause');
    await page.until(({ frozen, panels }) => !frozen && panels[0].tick > tick);
  });

  test('the line of time goes back, and to the latest frame', async () => {
    await page.moreFrames(25);
    const tickOf = ({ panels: [{ tick }] }) => tick;
    const latest = tickOf(await page.numbers());
    await page.tab.fill('#scrub', '-1');
    const back = tickOf(await page.until((now) => now.frozen && tickOf(now) !== latest));
    await page.textBecomes('#time', /^\d+\.\d s ago/);
    await page.press('[');
    const farther = tickOf(await page.until((now) => tickOf(now) < back));
    await page.press(']');
    await page.until((now) => tickOf(now) > farther);
    await page.click('#live');
    await page.until(({ frozen }) => !frozen);
    await page.tab.locator('body').click({ position: { x: 300, y: 70 } });
    await page.press('{');
    await page.until(({ frozen }) => frozen);
    await page.press('Home');
    await page.until(({ panels: [{ tick }] }) => tick < farther);
    await page.press('End');
    await page.until(({ frozen }) => !frozen);
  });

  test('levels in dBFS and in LSB, everywhere', async () => {
    const colours = page.tab.locator('.item').first().locator('.range').nth(1);
    const shown = async () => [...await colours.locator('.value').allTextContents(), await colours.locator('.unit').innerText()];
    const plot = page.tab.locator('.item').first().locator('.plot').first();
    await plot.click({ position: { x: 200, y: 60 }, modifiers: ['Shift'] });
    await page.tab.getByLabel('Lowest colour', { exact: true }).first().fill('-60');
    await page.tab.getByLabel('Highest colour', { exact: true }).first().fill('-20');
    assert.deepEqual(await shown(), ['−60', '−20', 'dBFS']);
    await page.click('#unit');
    assert.equal((await page.numbers()).unit, 'LSB');
    assert.equal(await page.text('#unit'), 'LSB');
    assert.deepEqual(await shown(), ['33', '3277', 'LSB']);
    const { panels: [{ cursors }] } = await page.until(({ panels: [{ cursors: { readings } }] }) =>
      readings.every((text) => text.includes(' LSB ')));
    assert.ok(cursors.readings.every((text) => !text.includes('dB')), cursors.readings.join());
    await page.screenshot('levels-lsb');
    await page.press('u', 'x', 'a');
    assert.equal((await page.numbers()).unit, 'dBFS');
  });

  test('maximum and mean', async () => {
    const pressed = (selector) => page.tab.getAttribute(selector, 'aria-pressed');
    await page.click('#hold');
    assert.equal(await pressed('#hold'), 'false');
    assert.equal(await page.tab.locator('.key.held').first().isVisible(), false);
    await page.press('h');
    assert.equal(await pressed('#hold'), 'true');
    await page.press('m');
    assert.equal(await pressed('#mean'), 'true');
    await page.click('#mean');
    assert.equal(await pressed('#mean'), 'false');
    for (const reset of [() => page.press('0'), () => page.click('#reset')]) {
      const { panels: [{ count }] } = await page.moreFrames(20);
      await reset();
      await page.until(({ panels: [panel] }) => panel.frames - panel.count >= count);
    }
  });

  test('the targets of the simulator', async () => {
    const { panels } = await page.until(({ panels: [{ truth }] }) => truth.length > 0);
    panels.forEach(({ truth: [target] }) => assert.equal(target.distance_m.toFixed(2), '0.50'));
    assert.equal(await page.tab.getAttribute('#truth', 'aria-pressed'), 'true');
    await page.screenshot('truth');
    await page.press('g');
    assert.equal(await page.tab.getAttribute('#truth', 'aria-pressed'), 'false');
    await page.click('#truth');
    assert.equal(await page.tab.getAttribute('#truth', 'aria-pressed'), 'true');
  });

  test('the space bar stops the picture, whatever was clicked before', async () => {
    await page.click('#hold');
    const { frozen } = await page.numbers();
    await page.press('Space');
    await page.until((now) => now.frozen !== frozen);
    assert.equal(await page.tab.getAttribute('#hold', 'aria-pressed'), 'false');
    await page.press('Space', 'h');
    await page.until((now) => now.frozen === frozen);
  });

  test('ranges of levels and colours', async () => {
    const handle = (name) => page.tab.getByLabel(name, { exact: true }).first();
    await handle('Lowest level').fill('-100');
    await handle('Highest colour').fill('-20');
    await handle('Highest velocity colour').fill('-25');
    await page.until(({ panels: [{ ranges }] }) =>
      ranges.level[0] === -100 && ranges.colour[1] === -20 && ranges.velocity[1] === -25);
    await page.moreFrames(10);
    assert.equal((await page.numbers()).panels[0].ranges.level[0], -100, 'a chosen range remains');
    await page.press('a');
    await page.until(({ panels: [{ ranges }] }) => ranges.level[0] !== -100 && ranges.colour[1] !== -20);
    await handle('Lowest level').fill('-100');
    await page.click('#range');
    await page.until(({ panels: [{ ranges }] }) => ranges.level[0] !== -100);
  });

  test('cursors', async () => {
    const plot = page.tab.locator('.item').first().locator('.plot').first();
    const { width } = await plot.boundingBox();
    const at = (part) => ({ position: { x: 52 + part * (width - 52 - 62), y: 60 } });
    await plot.click(at(0.25));
    await plot.click({ ...at(0.75), modifiers: ['Shift'] });
    const { panels: [{ cursors: { a, b } }] } = await page.numbers();
    assert.ok(Math.abs(a.point - 25) <= 2 && Math.abs(b.point - 75) <= 2, `${a.point}, ${b.point}`);
    await page.press('1', 'ArrowRight', 'Shift+ArrowLeft', 'ArrowUp', 'Shift+ArrowDown');
    const { panels: [{ cursors }] } = await page.until(({ panels: [panel] }) => panel.cursors.readings[2].includes('dB'));
    assert.deepEqual([cursors.a.point, cursors.b.point], [a.point + 1, b.point - 1]);
    assert.ok(cursors.a.seconds !== null && cursors.b.seconds !== null);
    await page.screenshot('cursors');
    await page.press('x');
    const { panels: [{ cursors: left }] } = await page.numbers();
    assert.deepEqual([left.a.seconds, left.b], [null, null]);
  });

  test('a cursor in the picture over time', async () => {
    const map = page.tab.locator('.item').first().locator('.plot').nth(1);
    const { width, height } = await map.boundingBox();
    await page.moreFrames(25);
    await map.click({ position: { x: width / 2, y: height / 4 } });
    const { panels: [{ cursors }] } = await page.numbers();
    assert.ok(cursors.a.seconds !== null);
    await page.press('x');
  });

  test('the label of a cursor at the last point is inside the plot', async () => {
    const plot = page.tab.locator('.item').first().locator('.plot').first();
    const { width, height } = await plot.boundingBox();
    await plot.click({ position: { x: width - 64, y: height / 2 } });
    await page.press('1', ...Array(3).fill('ArrowRight'));
    await page.moreFrames(2);
    const pixel = await plot.locator('canvas').first().evaluate((canvas, x) =>
      [...canvas.getContext('2d').getImageData(x * devicePixelRatio, 8 * devicePixelRatio, 1, 1).data], width - 62 - 11);
    assert.deepEqual(pixel, [0xc8, 0x40, 0x1a, 255]);
  });

  test('panels are chosen with keys', async () => {
    const items = page.tab.locator('.item');
    await page.press('2');
    assert.equal(await items.nth(1).evaluate((item) => item === document.activeElement), true);
    await page.press('z');
    assert.deepEqual([await items.nth(0).isVisible(), await items.nth(1).isVisible()], [false, true]);
    await page.press('z');
    assert.equal(await items.nth(0).isVisible(), true);
  });

  test('drawers and the list of keys', async () => {
    for (const [key, part, open] of [['c', '#configuration', '#configure'], ['l', '#messages', '#log'], ['?', '#keys', '#help']]) {
      const shown = () => page.tab.locator(part).isVisible();
      await page.press(key);
      assert.equal(await shown(), true);
      await page.press('Escape');
      assert.equal(await shown(), false);
      await page.click(open);
      assert.equal(await shown(), true);
      await page.press('Escape');
    }
    const keys = await page.tab.locator('button[data-key]').evaluateAll((all) => all.map(({ dataset }) => dataset.key));
    const listed = await page.tab.locator('#keyList dt').allTextContents();
    keys.forEach((key) => assert.ok(listed.includes(key.replace(' ', 'Space')), key));
  });

  test('the length of the axes of time', async () => {
    const { bytes } = await page.numbers();
    await page.tab.selectOption('#window', '60');
    const longer = await page.until((now) => now.bytes > bytes);
    await page.tab.selectOption('#window', '20');
    await page.until((now) => now.bytes < longer.bytes);
  });

  test('fewer frames', async () => {
    await page.tab.selectOption('#every', '5');
    await page.moreFrames(2);
    const begin = await page.numbers();
    const end = await page.until(({ state }) => state.frames >= begin.state.frames + 40);
    const share = (end.frames - begin.frames) / (end.state.frames - begin.state.frames);
    assert.ok(share < 0.5, `${share} of the frames`);
    await page.tab.selectOption('#every', '1');
  });

  test('a picture is saved', async () => {
    for (const save of [() => page.click('#png'), () => page.press('s')]) {
      const { download, title } = await page.savedPanels(save);
      assert.match(title, /^simulated board  ·  \d+\.\d\d s  ·  \S+ \S+ UTC ± \d+\.\d ms  ·  vantor \d+\.\d+\.\d+  ·  sim:/);
      assert.match(download.suggestedFilename(), /^vantor-[\d-]+T[\d-]+\.png$/);
      const bytes = readFileSync(await download.path());
      assert.equal(bytes.toString('latin1', 1, 4), 'PNG');
      assert.equal(bytes.readUInt32BE(16), 1280);
      assert.ok(bytes.length > 20000, `${bytes.length} bytes`);
    }
  });

  test('a picture of an earlier moment states that moment', async () => {
    await page.moreFrames(30);
    await page.press('Space', '[');
    await page.textBecomes('#time', /^1\.\d s ago/);
    const [, seconds] = /\((\S+) s\)/.exec(await page.text('#time'));
    const { title } = await page.savedPanels(() => page.click('#png'));
    assert.ok(title.includes(`  ${seconds} s  ·`), title);
    const shown = Date.parse(`${/\d{4}-\S+ \S+(?= UTC)/.exec(title)[0].replace(' ', 'T')}Z`);
    const now = await page.tab.evaluate(() => Date.now());
    assert.ok(shown <= now - 1000 && shown > now - 600000, title);
    await page.press('End');
  });

  test('a recording is begun and ended', async () => {
    await page.tab.fill('#recordName', 'from page');
    await page.click('#record');
    await page.until(({ state }) => state.recorder?.frames > 5);
    await page.textBecomes('#record', /^Stop$/);
    assert.match(await page.figure('recorder'), /^.* frames, \d+ lost, .*B in from page$/);
    await page.press('Tab');
    await page.tab.locator('.item').first().focus();
    await page.press('r');
    await page.until(({ state }) => state.recorder === null);
    await page.textBecomes('#done', /recordings/);
    const info = JSON.parse(run(directory, ['info', 'recordings/from page', '--json']));
    assert.ok(JSON.stringify(info).includes('"frames"'));
  });

  test('a name that is not possible is refused', async () => {
    await page.tab.fill('#recordName', '../elsewhere');
    await page.click('#record');
    await page.textBecomes('#done', /cannot be the name/);
    assert.equal((await page.numbers()).state.recorder, null);
    assert.equal(existsSync(join(directory.path, 'elsewhere')), false);
    await page.tab.fill('#recordName', '');
  });

  test('the last seconds are kept', async () => {
    await page.tab.fill('#seconds', '2');
    await page.moreFrames(10);
    await page.click('#keep');
    await page.textBecomes('#done', /^Kept \d+ frames in recordings\/\S+/);
    const [, place] = /in (recordings\/\S+),/.exec(await page.text('#done'));
    run(directory, ['info', place]);
  });

  test('long messages leave room for the line of time, and can be read', async () => {
    const name = `${'long '.repeat(19)}/`;
    await page.tab.fill('#recordName', name);
    await page.click('#record');
    await page.textBecomes('#done', /cannot be the name/);
    const { width } = await page.tab.locator('#scrub').boundingBox();
    assert.ok(width >= 160, `${width} pixels`);
    assert.equal(await page.tab.getAttribute('#done', 'title'), await page.tab.locator('#done').textContent());
    await page.tab.fill('#recordName', '');
  });

  test('captions are not cut beside the configuration', async () => {
    await page.press('c');
    await page.moreFrames(2);
    assert.equal(await cutCaptions(page), 0);
    await page.screenshot('live-configuration');
    await page.press('Escape');
  });

  for (const [width, height, colorScheme] of [[1920, 1080, 'light'], [1280, 800, 'dark'], [1024, 700, 'light'], [1024, 700, 'dark'], [800, 700, 'light']]) {
    test(`the page fits ${width} pixels, ${colorScheme}`, async () => {
      const other = await Page.open(browser, view.url, { width, height, colorScheme });
      await other.moreFrames(20);
      const lines = await other.tab.locator('#toolbar').evaluate((bar) =>
        new Set([...bar.querySelectorAll('button')].map((part) => part.getBoundingClientRect().top)).size);
      assert.ok(lines <= (width < 1280 ? 2 : 1), `${lines} lines`);
      assert.equal(await other.tab.evaluate(() => document.documentElement.scrollWidth <= innerWidth), true);
      assert.equal(await cutCaptions(other), 0);
      await other.screenshot(`live-${width}-${colorScheme}`);
      await other.close();
    });
  }

  /** The number of captions that do not fit their place. */
  function cutCaptions(shown) {
    return shown.tab.locator('figcaption').evaluateAll((all) => all.filter((part) => part.scrollWidth > part.clientWidth).length);
  }
});
