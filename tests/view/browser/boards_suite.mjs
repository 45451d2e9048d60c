/** Several boards on one axis of time. */
import assert from 'node:assert/strict';
import { after, before, describe, test } from 'node:test';
import { configuration, STILL } from './documents.mjs';
import { launch, Page } from './pages.mjs';
import { makeDirectory, run, startServer, startView } from './programs.mjs';

/** Seconds between two frames. */
const PERIOD = 0.05;

describe('boards', () => {
  let browser;
  let directory;
  let page;
  let servers;
  let view;

  before(async () => {
    directory = makeDirectory();
    // The target appears for both boards at the same moment.
    const start = Math.floor(Date.now() / 1000);
    directory.write('scene.json', { targets: STILL.targets.map((target) => ({ ...target, enter_s: 12 })) });
    directory.write('garage.json', configuration());
    servers = await Promise.all([1, 2].map((board) => startServer(directory, 0,
      ['--scene', 'scene.json', '--scene-start', String(start), '--board', String(board)])));
    const [first, second] = servers.map(({ port }) => `tcp:127.0.0.1:${port}`);
    view = await startView(directory, ['garage.json', '--connect', first, '--board', `garage.json=${second}`]);
    browser = await launch();
    page = await Page.open(browser, view.url, { drawn: false });
  });

  after(async () => {
    await page.close();
    await browser.close();
    assert.equal(await view.end(), 0);
    await Promise.all(servers.map((server) => server.end()));
    directory.remove();
  });

  const isDrawn = ({ boards }) => boards.length === 2 && boards.every((board) => board?.panels[0]?.pictures > 0);
  const panelsOf = ({ boards }) => boards.map(({ panels: [panel] }) => panel);

  /** The page of a board, from 1. */
  const pageOf = (number) => page.tab.frameLocator(`iframe >> nth=${number - 1}`);

  test('each has a page with its name and its address', async () => {
    await page.until(isDrawn);
    for (const [index, { port }] of servers.entries()) {
      await pageOf(index + 1).locator('#source').filter({ hasText: `tcp:127.0.0.1:${port}` }).waitFor();
      assert.match(await pageOf(index + 1).locator('#name').innerText(), /^simulated board/);
    }
    await page.textBecomes('#name', /^2 boards$/);
  });

  test('all pictures over time end at the same moment', async () => {
    await page.until((now) => isDrawn(now) && panelsOf(now).every(({ bound, count }) => bound < 0.1 && count > 60));
    await page.textBecomes('#moment', /^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{4} UTC ± \d+\.\d ms$/);
    await page.press('Space');
    const frozen = await page.until((now) => now.frozen && panelsOf(now).every(({ edge }) => Math.abs(edge - now.edge) < 1e-3));
    for (const { utc, edge } of panelsOf(frozen)) {
      assert.ok(utc <= edge + 1e-3 && utc > edge - 2 * PERIOD, `${edge - utc} s before the edge`);
    }
    assert.equal(await page.text('#pause'), 'Continue');
    // Keys in the page of a board also act on all.
    await pageOf(2).locator('.item').focus();
    await page.press('[');
    const back = await page.until((now) => panelsOf(now).every(({ edge }) => Math.abs(edge - (frozen.edge - 1)) < 1e-3));
    panelsOf(back).forEach(({ utc }, i) => assert.ok(utc < panelsOf(frozen)[i].utc - 0.9));
    await page.press('Space');
    await page.until((now) => !now.frozen && now.edge > frozen.edge);
  });

  test('the length of the axes of time is that of all', async () => {
    await page.tab.selectOption('#window', '30');
    await page.until(({ seconds, boards }) => seconds === 30 && boards.every((board) => board.seconds === 30));
  });

  test('each has its own recording', async () => {
    await pageOf(2).locator('#record').click();
    const { boards } = await page.until((now) => now.boards[1].state?.recorder?.frames > 0);
    assert.equal(boards[0].state.recorder, null);
    await pageOf(2).locator('#record').click();
    await page.until((now) => now.boards[1].state.recorder === null);
  });

  test('the same moment is at the same place, also of a board that is lost', async () => {
    await page.until(({ boards }) => boards.every(({ panels: [{ level }] }) => Math.max(...level) > 3000));
    await page.until(({ boards }) => boards.every(({ panels: [{ count }] }) => count > 300));
    const { boards: [, { frames }] } = await page.numbers();
    await servers[1].end('SIGKILL');
    const lost = await page.until((now) => now.boards[1].state.connection === 'lost');
    const later = await page.until(({ edge }) => edge > lost.edge + 3);
    assert.ok(later.boards[1].frames >= frames);
    assert.equal(later.boards[0].state.connection, 'connected');
    assert.equal(later.boards[0].state.missing, 0);
    await page.press('Space');
    await page.until((now) => now.frozen && panelsOf(now).every(({ edge }) => Math.abs(edge - now.edge) < 1e-3));
    await page.screenshot('boards');
    const [first, second] = await Promise.all([1, 2].map(appearance));
    assert.ok(first > 10, `at ${first} pixels`);
    assert.ok(Math.abs(first - second) <= 4, `at ${first} and ${second} pixels`);
  });

  /** Where the target appears in the picture over time of a board: pixels from the upper edge of its page. */
  function appearance(number) {
    return pageOf(number).locator('.plot').nth(1).locator('canvas').first().evaluate((canvas) => {
      const { width, height } = canvas;
      const { data } = canvas.getContext('2d').getImageData(0, 0, width, height);
      const axes = 32 * devicePixelRatio;
      const left = 52 * devicePixelRatio;
      const inside = width - left - 62 * devicePixelRatio;
      let last = NaN;
      for (let y = 0; y < height - axes; y++) {
        // Nearer, the leakage is as strong.
        for (let x = left + 0.6 * inside; x < left + 0.7 * inside; x++) {
          const [red, green, blue] = data.subarray(4 * (y * width + Math.floor(x)));
          last = red > 60 && green > 150 && blue < 150 ? y : last;
        }
      }
      return canvas.getBoundingClientRect().top + last / devicePixelRatio;
    });
  }
});

describe('recordings of boards', () => {
  let browser;
  let directory;
  let page;
  let view;

  before(async () => {
    directory = makeDirectory();
    directory.write('scene.json', STILL);
    directory.write('garage.json', configuration());
    run(directory, ['record', 'garage.json', '--seconds', '6', '--output', 'both',
      '--connect', 'sim:--scene scene.json --board 1', '--connect', 'sim:--scene scene.json --board 2']);
    view = await startView(directory, ['both']);
    browser = await launch();
    page = await Page.open(browser, view.url, { drawn: false });
  });

  after(async () => {
    await page.close();
    await browser.close();
    assert.equal(await view.end(), 0);
    directory.remove();
  });

  const positions = ({ boards }) => boards.map((board) => board?.state?.position);

  test('they are played together, to their end', async () => {
    await page.until(({ boards }) => boards.length === 2 && boards.every((board) => board?.state?.connection === 'playing'));
    await page.tab.selectOption('#speed', '4');
    await page.until((now) => positions(now).every(({ speed }) => speed === 4));
    await page.until(({ boards }) => boards.every(({ state }) => state.connection === 'ended'));
    await page.textBecomes('#pause', /^Play$/);
    await page.textBecomes('#time', /^(\S+) of \1 s$/);
  });

  test('all go to the same moment', async () => {
    const { boards: [{ state: { position: { begin_utc_s: begin, end_utc_s: end } } }] } = await page.numbers();
    const half = Math.round((end - begin) / 2);
    const middle = begin + half;
    await page.tab.fill('#scrub', String(half));
    const { boards } = await page.until((now) => now.boards.every(({ state, panels: [panel] }) =>
      state.connection === 'paused' && Math.abs(state.position.utc_s - middle) < 1e-3 && Math.abs(panel.utc - middle) < 2 * PERIOD));
    for (const { panels: [{ utc, mapRows }] } of boards) {
      assert.ok(utc <= middle, `${utc - middle} s after it`);
      assert.ok(mapRows > 20, 'pictures over time show the seconds before');
    }
    await page.screenshot('boards-recording');
    await page.press('Home');
    await page.until((now) => positions(now).every(({ utc_s: utc }) => utc === begin));
    await page.press('End');
    await page.until((now) => positions(now).every(({ utc_s: utc }) => utc === end));
  });
});
