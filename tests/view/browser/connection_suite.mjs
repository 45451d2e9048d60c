/** A server that is lost and comes back, and a view that ends. */
import assert from 'node:assert/strict';
import { after, before, describe, test } from 'node:test';
import { configuration } from './documents.mjs';
import { launch, Page } from './pages.mjs';
import { makeDirectory, startServer, startView } from './programs.mjs';

describe('connection', () => {
  let browser;
  let directory;

  before(async () => {
    directory = makeDirectory();
    directory.write('garage.json', configuration());
    browser = await launch();
  });

  after(async () => {
    await browser.close();
    directory.remove();
  });

  test('a server is lost, and comes back; then the view ends', async () => {
    const server = await startServer(directory, 0);
    const view = await startView(directory, ['garage.json', '--connect', `tcp:127.0.0.1:${server.port}`]);
    const page = await Page.open(browser, view.url);
    await server.end('SIGKILL');
    await page.until(({ state }) => ['lost', 'reconnecting'].includes(state.connection));
    await page.textBecomes('#notes', /connection to the server is lost/);
    await page.textBecomes('#time', /^stopped/);
    assert.notEqual(await page.figure('server'), 'connected');
    await page.screenshot('lost');

    await page.press('c');
    await page.click('#apply');
    await page.textBecomes('#verdict', /\S/);
    const why = await page.text('#verdict');
    assert.match(why, /connect/i);
    await page.textBecomes('#done', why);

    const again = await startServer(directory, server.port);
    await page.until(({ state }) => state.connection === 'connected');
    await page.moreFrames(10);
    await page.textBecomes('#time', /^live/);
    assert.equal(await page.figure('server'), 'connected');

    assert.equal(await view.end(), 0);
    await page.until(({ state }) => state === null);
    await page.textBecomes('#notes', /No connection to vantor view/);
    await page.textBecomes('#time', /^stopped/);
    assert.equal(await page.figure('server'), null);
    assert.equal(await page.figure('vantor view'), 'not connected');
    assert.equal(await page.tab.locator('#record').isDisabled(), true);
    await page.screenshot('ended');
    await page.close();
    await again.end();
  });

  test('sensors that became warm are calibrated', async () => {
    const scene = { targets: [], temperatures: [{ celsius: 20, drift_celsius_per_s: 3 }] };
    directory.write('warm.json', scene);
    const view = await startView(directory, ['garage.json', '--connect', 'sim:--scene warm.json']);
    const page = await Page.open(browser, view.url);
    await page.until(({ state }) => state?.calibration_needed);
    await page.textBecomes('#notes', /calibrate again/);
    await page.click('#calibrate');
    await page.textBecomes('#done', /calibrated/);
    await page.until(({ state }) => !state.calibration_needed);
    assert.equal(await page.tab.locator('#calibrate').isVisible(), false);
    await page.close();
    assert.equal(await view.end(), 0);
  });
});
