/** Five panels, names with markup, recordings that cannot be written, and a recording of two hours. */
import assert from 'node:assert/strict';
import { writeFileSync } from 'node:fs';
import { join } from 'node:path';
import { describe, test } from 'node:test';
import { configuration } from './documents.mjs';
import { run } from './programs.mjs';
import { useView } from './suite.mjs';

describe('five panels and unusual names', () => {
  const RECORDING = '<b>walk&amp;\'"';
  let directory;
  let page;

  useView((made) => {
    made.write('<i>five&amp;.json', configuration({}, 5));
    writeFileSync(join(made.path, 'recordings'), 'This is a file.');
    return ['<i>five&amp;.json', '--connect', 'sim:--sensors 5 --scene scene.json', '--record', RECORDING];
  }, (used) => { ({ directory, page } = used); });

  test('names are texts', async () => {
    await page.until(({ state }) => state?.recorder?.frames > 0);
    assert.ok((await page.figure('recorder')).endsWith(` in ${RECORDING}`), await page.figure('recorder'));
    assert.equal(await page.tab.locator('b, i').count(), 0);
    await page.click('#record');
    await page.until(({ state }) => state.recorder === null);
    await page.textBecomes('#done', RECORDING);
    assert.match(run(directory, ['info', RECORDING]), /frames/);
  });

  test('a recording that cannot be written is refused', async () => {
    for (const button of ['#record', '#keep']) {
      await page.click(button);
      await page.textBecomes('#done', /recordings/);
      assert.equal((await page.numbers()).state.recorder, null);
    }
    await page.moreFrames(5);
  });

  test('each panel is chosen with its key', async () => {
    const items = page.tab.locator('.item');
    assert.equal(await items.count(), 5);
    const chosen = () => items.evaluateAll((all) => all.indexOf(document.activeElement));
    for (const [key, index] of [['5', 4], ['3', 2], ['9', 2], ['1', 0], ['4', 3]]) {
      await page.press(key);
      assert.equal(await chosen(), index, key);
    }
    await page.press('z');
    assert.equal(await items.evaluateAll((all) => all.filter((item) => !item.hidden).length), 1);
    await page.screenshot('one-of-five');
    await page.press('z');
    await page.screenshot('five');
  });
});

describe('a recording of two hours', () => {
  const RECORDING = '<i>night &lt;1&gt;';
  let page;

  useView((directory) => {
    directory.write('slow.json', configuration({ frame_rate: 0.1 }));
    run(directory, ['record', 'slow.json', '--frames', '721', '--output', RECORDING, '--connect', 'sim:--clock virtual --scene scene.json']);
    return [RECORDING];
  }, (used) => { ({ page } = used); });

  test('it is shown to its end', async () => {
    await page.textBecomes('#name', RECORDING);
    assert.equal(await page.tab.locator('i').count(), 0);
    await page.press('Space', 'End');
    await page.textBecomes('#time', '7200.00 of 7200.00 s');
    await page.press('{');
    await page.textBecomes('#time', '7190.00 of 7200.00 s');
    await page.press('Home');
    await page.textBecomes('#time', /^0\.00 of/);
  });
});
