/** The configuration is changed on the page. */
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { describe, test } from 'node:test';
import { configuration } from './documents.mjs';
import { simulated, useView } from './suite.mjs';

describe('configuration', () => {
  const FIELD = '[data-pointer="/groups/0/0/config/num_points"]';
  let directory;
  let page;

  useView(simulated(configuration()), (used) => { ({ directory, page } = used); });

  /** Applies what is in the form, and waits for the new session. */
  async function apply() {
    const { session } = await page.numbers();
    await page.click('#apply');
    return page.until((now) => now.session > session && now.panels[0]?.pictures > 0);
  }

  test('the form shows the configuration, and figures of it', async () => {
    await page.click('#configure');
    assert.equal(await page.tab.inputValue(`${FIELD} input`), '100');
    await page.tab.locator('#plan dd').first().waitFor();
  });

  test('a value that is not possible is shown, with the nearest one', async () => {
    await page.tab.fill(`${FIELD} input`, '99999');
    await page.tab.locator(`${FIELD} .fault`).waitFor();
    assert.equal(await page.tab.getAttribute(`${FIELD} input`, 'aria-invalid'), 'true');
    await page.screenshot('fault');
    const { session } = await page.numbers();
    await page.click('#apply');
    await page.textBecomes('#verdict', /faults/);
    assert.equal((await page.numbers()).session, session);
    await page.textBecomes('#verdict', /correct them first/);
    await page.click(`${FIELD} .fault button`);
    await page.tab.locator('.fault').first().waitFor({ state: 'detached' });
    assert.match(await page.tab.inputValue(`${FIELD} input`), /^\d+$/);
    assert.notEqual(await page.tab.inputValue(`${FIELD} input`), '99999');
    await page.tab.fill(`${FIELD} input`, '100');
    await page.tab.locator('#verdict:empty').waitFor({ state: 'attached' });
    assert.equal(await page.tab.locator('.fault').count(), 0);
    assert.equal(await page.text('#done'), '');
  });

  test('a fault between members is marked at all of them', async () => {
    const names = ['inter_frame_idle_state', 'inter_sweep_idle_state'];
    const [frame, sweep] = names.map((name) => page.tab.locator(`[data-pointer$="/${name}"] select`));
    await frame.selectOption('ready');
    await sweep.selectOption('sleep');
    await page.tab.locator('.fault').first().waitFor();
    const marked = await page.tab.locator('[aria-invalid]').evaluateAll((all) =>
      all.map((field) => field.closest('label').dataset.pointer.split('/').pop()));
    assert.deepEqual(marked, names);
    await page.tab.fill(`${FIELD.replace('num_points', 'start_point')} input`, '3800');
    await page.tab.locator('.fault', { hasText: 'last point' }).waitFor();
    assert.equal(await page.tab.locator('[aria-invalid]').count(), 6);
    await page.screenshot('fault-between-members');
    await page.tab.fill(`${FIELD.replace('num_points', 'start_point')} input`, '120');
    await frame.selectOption('');
    await sweep.selectOption('');
    await page.tab.locator('[aria-invalid]').first().waitFor({ state: 'detached' });
  });

  test('what is not a number is a fault', async () => {
    await page.tab.fill(`${FIELD} input`, 'many');
    await page.tab.locator(`${FIELD} .fault`).waitFor();
    await page.tab.fill(`${FIELD} input`, '60');
    await page.tab.locator('.fault').first().waitFor({ state: 'detached' });
  });

  test('a configuration is applied', async () => {
    const { panels } = await apply();
    assert.equal(panels[0].item.points, 60);
  });

  test('an item is added and removed', async () => {
    await page.tab.getByRole('button', { name: 'Add item' }).click();
    const field = page.tab.locator('[data-pointer="/groups/0/1/sensor_id"] input');
    await field.fill('2');
    assert.equal((await apply()).panels.length, 2);
    await page.tab.getByRole('button', { name: 'Remove item 2' }).click();
    assert.equal((await apply()).panels.length, 1);
  });

  test('a configuration is saved and loaded', async () => {
    const [download] = await Promise.all([page.tab.waitForEvent('download'), page.click('#save')]);
    assert.equal(download.suggestedFilename(), 'configuration.json');
    const saved = JSON.parse(readFileSync(await download.path(), 'utf8'));
    assert.equal(saved.groups[0][0].config.num_points, 60);
    saved.groups[0][0].config.num_points = 80;
    await page.tab.setInputFiles('#file', directory.write('other.json', saved));
    await page.valueBecomes(`${FIELD} input`, '80');
    assert.equal((await apply()).panels[0].item.points, 80);
  });

  test('a file that is not a configuration is refused', async () => {
    await page.tab.setInputFiles('#file', { name: 'a.json', mimeType: 'application/json', buffer: Buffer.from('{"groups": [') });
    await page.textBecomes('#verdict', /The file is not a configuration/);
  });
});
