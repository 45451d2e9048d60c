/** A recording is played. */
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { join } from 'node:path';
import { describe, test } from 'node:test';
import { configuration } from './documents.mjs';
import { run } from './programs.mjs';
import { useView } from './suite.mjs';

describe('recording', () => {
  const FRAMES = 400;
  let directory;
  let page;

  useView((directory) => {
    directory.write('garage.json', configuration());
    run(directory, ['record', 'garage.json', '--frames', String(FRAMES), '--output', 'garage',
      '--connect', 'sim:--clock virtual --scene scene.json']);
    return ['garage'];
  }, (used) => { ({ directory, page } = used); });

  test('it is named, and cannot be changed', async () => {
    await page.until(({ state }) => state?.connection === 'playing' && state.position.frames === FRAMES);
    await page.textBecomes('#name', /^garage$/);
    assert.equal(await page.figure('recording'), 'playing');
    assert.equal(await page.figure('server'), null);
    for (const name of ['#record', '#keep', '#apply']) {
      assert.equal(await page.tab.locator(name).isDisabled(), true, name);
    }
    await page.screenshot('recording');
  });

  test('it stops, and goes to any frame', async () => {
    await page.press('Space');
    await page.until(({ state }) => state.connection === 'paused');
    await page.tab.fill('#scrub', '300');
    await page.until(({ state, kept }) => state.position.frame === 300 && kept > 200);
    await page.textBecomes('#time', /^15\.00 of/);
    const { panels: [{ mapRows }], state: { dropped } } = await page.numbers();
    assert.ok(mapRows > 200, 'pictures over time show the seconds before');
    assert.equal(dropped, 0);
    await page.screenshot('recording-jump');
    const { title } = await page.savedPanels(() => page.click('#png'));
    const [{ 'core:datetime': begin }] = JSON.parse(readFileSync(join(directory.path, 'garage', 'group-1-item-1.sigmf-meta'))).captures;
    const shown = new Date(Date.parse(begin) + 15000).toISOString().slice(0, 19).replace('T', ' ');
    assert.match(title, new RegExp(`^garage  ·  15\\.00 s  ·  ${shown} UTC  ·  vantor `));
    await page.tab.locator('.item').first().focus();
    await page.press('[');
    await page.until(({ state }) => Math.abs(state.position.frame - 280) <= 2);
    await page.press('}');
    await page.until(({ state }) => state.position.frame >= FRAMES - 2);
  });

  test('Home and End go to the first and the last frame', async () => {
    await page.press('Home');
    await page.until(({ state }) => state.position.frame === 0);
    await page.press('End');
    await page.until(({ state }) => state.position.frame === FRAMES - 1);
    await page.tab.locator('#scrub').focus();
    await page.press('Home');
    await page.until(({ state }) => state.position.frame === 0);
    await page.press('End');
    await page.until(({ state }) => state.position.frame === FRAMES - 1);
  });

  test('it is played at another speed, to its end, and again', async () => {
    await page.tab.fill('#scrub', '200');
    await page.until(({ state }) => Math.abs(state.position.frame - 200) <= 1);
    await page.tab.selectOption('#speed', '16');
    await page.until(({ state }) => state.position.speed === 16);
    await page.click('#pause');
    await page.until(({ state }) => state.connection === 'ended');
    await page.textBecomes('#pause', /^Play$/);
    // Readings follow the pictures up to the last frame.
    await page.until(({ panels: [{ displacement, cursors }] }) => {
      const [, shown] = /(\S+) mm$/.exec(cursors.readings[0]) ?? [];
      return Math.abs(Number(shown?.replace('\u2212', '-')) - displacement) < 0.00051;
    });
    await page.tab.selectOption('#speed', '1');
    await page.click('#pause');
    await page.until(({ state }) => state.connection === 'playing' && state.position.frame < 100);
  });
});
