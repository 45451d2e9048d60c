/**
 * Measures the live view in a browser, and prints figures.
 *
 * Usage: node benchmarks/view_benchmark.mjs [SECONDS]
 * SECONDS is how long to measure rates and memory. The programs are those in build/release, which ./test builds.
 */
import { mkdirSync, readdirSync, readFileSync } from 'node:fs';
import { join, resolve } from 'node:path';

const build = resolve(process.env.VANTOR_BUILD ?? 'build/release');
const seconds = Number(process.argv[2] ?? 10);
Object.assign(process.env, {
  VANTOR: join(build, 'bin/vantor'),
  VANTOR_SERVER: join(build, 'bin/vantor_server'),
  VANTOR_VIEW_TOOLS: join(build, 'tests/view/tools'),
  CHROMIUM: process.env.CHROMIUM ?? '/usr/bin/chromium',
  SCREENSHOTS: join(build, 'view-screenshots'),
});
mkdirSync(process.env.SCREENSHOTS, { recursive: true });
const { launch, Page } = await import('../tests/view/browser/pages.mjs');
const { makeDirectory, startView } = await import('../tests/view/browser/programs.mjs');

const report = (name, value) => console.log(`${name.padEnd(64)} ${value}`);
const wait = (milliseconds) => new Promise((done) => { setTimeout(done, milliseconds); });

/** A configuration of items that measure this many frames per second. */
const configuration = (items, points, rate) => ({
  groups: [Array.from({ length: items }, (_, i) => ({
    sensor_id: i + 1,
    config: { frame_rate: rate, start_point: 80, num_points: points, step_length: 2, sweeps_per_frame: 8, hwaas: 4 },
  }))],
});

/** The memory of the page's scripts, typed arrays included, in bytes. */
async function memory(page) {
  const session = await page.tab.context().newCDPSession(page.tab);
  const { usedSize, backingStorageSize = 0 } = await session.send('Runtime.getHeapUsage');
  return usedSize + Math.max(backingStorageSize, (await page.numbers()).bytes);
}

/** Milliseconds since the machine started, at a time of the wall clock. */
const sinceBoot = (wall) => wall + Number(readFileSync('/proc/uptime', 'utf8').split(' ')[0]) * 1000 - Date.now();

/** When the server of a view was started, in milliseconds since the machine started. */
function startOfServer(view) {
  for (const process of readdirSync('/proc').filter((name) => /^[0-9]+$/.test(name))) {
    try {
      const [, name, rest] = /\((.*)\) (.*)/.exec(readFileSync(`/proc/${process}/stat`, 'utf8'));
      const fields = rest.split(' ');
      if (name === 'vantor_server' && Number(fields[1]) === view.process.pid) {
        return Number(fields[19]) * 10;
      }
    } catch {
      // The process has ended meanwhile.
    }
  }
  throw new Error('no server');
}

/** Collects ticks of frames and the times at which the page has drawn them. */
const collectDrawn = (duration) => new Promise((done) => {
  const drawn = [];
  const end = performance.now() + duration;
  let last = null;
  const look = (now) => {
    const { tick } = window.vantor.numbers().panels[0];
    if (tick !== last) {
      drawn.push([tick, performance.timeOrigin + performance.now()]);
    }
    last = tick;
    if (now < end) {
      requestAnimationFrame(look);
    } else {
      done(drawn);
    }
  };
  requestAnimationFrame(look);
});

/**
 * Milliseconds from the sample to the canvas, not exceeded by 99 of 100 frames. The server's ticks are microseconds
 * since it has started. The start is known to 10 ms, and is assumed too early, so that the result is too large if
 * anything.
 */
async function delayOfSamples(view, page) {
  const start = startOfServer(view);
  const drawn = await page.tab.evaluate(collectDrawn, 1000 * Math.min(seconds, 20));
  const delays = drawn.slice(1).map(([tick, wall]) => sinceBoot(wall) - start - tick / 1000).sort((a, b) => a - b);
  return delays[Math.ceil(delays.length * 0.99) - 1];
}

/** Measures the view of some items; all panels are visible. */
async function measure(browser, directory, items, points, rate) {
  const name = `${items} ${items === 1 ? 'item' : 'items'} of ${points} points`;
  directory.write('items.json', configuration(items, points, rate));
  const begin = performance.now();
  const view = await startView(directory, ['items.json', '--connect', 'sim:--sensors 5']);
  const page = await Page.open(browser, view.url, { width: 1280, height: items === 1 ? 800 : 2000 });
  report(`${name}: first pictures of all panels after`, `${((performance.now() - begin) / 1000).toFixed(2)} s`);
  await wait(2000);
  const before = await page.numbers();
  const start = performance.now();
  await wait(1000 * seconds);
  const after = await page.numbers();
  const span = (performance.now() - start) / 1000;
  const pictures = (after.pictures - before.pictures) / span;
  report(`${name}: pictures a second, with ${((after.frames - before.frames) / span).toFixed(1)} frames`, pictures.toFixed(1));
  report(`${name}: from the arrival of a frame to the canvas, 99 of 100 within`, `${after.latency.toFixed(0)} ms`);
  report(`${name}: from a sample to the canvas, 99 of 100 within`, `${(await delayOfSamples(view, page)).toFixed(0)} ms`);
  report(`${name}: memory of the page after ${seconds} s`, `${((await memory(page)) / 1e6).toFixed(1)} MB`);
  report(`${name}: dropped and lost frames`, `${after.state.dropped}, ${after.state.missing}`);
  await page.close();
  await view.end();
}

const directory = makeDirectory();
const browser = await launch();
await measure(browser, directory, 1, 160, 100);
await measure(browser, directory, 5, 400, 50);
await browser.close();
directory.remove();
