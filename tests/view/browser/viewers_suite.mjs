/** Several viewers, and visitors that are not let in. */
import assert from 'node:assert/strict';
import { request } from 'node:http';
import { describe, test } from 'node:test';
import { configuration } from './documents.mjs';
import { Page } from './pages.mjs';
import { simulated, useView } from './suite.mjs';

/** Asks for an address; resolves with status, headers and text of the answer. */
function ask(url, headers = {}) {
  return new Promise((resolve, reject) => {
    const asked = request(url, { headers }, (answer) => {
      let text = '';
      answer.on('data', (data) => { text += data; }).on('end', () => resolve({ status: answer.statusCode, headers: answer.headers, text }));
    });
    asked.on('upgrade', (answer, socket) => {
      socket.destroy();
      resolve({ status: answer.statusCode });
    });
    asked.on('error', reject).end();
  });
}

/** Asks for the WebSocket. */
const askStream = (url, more) => ask(url, {
  Connection: 'Upgrade', Upgrade: 'websocket', 'Sec-WebSocket-Version': '13', 'Sec-WebSocket-Key': 'dGhlIHNhbXBsZSBub25jZQ==', ...more,
});

describe('viewers', () => {
  let browser;
  let page;
  let view;

  useView(simulated(configuration()), (used) => { ({ browser, page, view } = used); });

  test('a second viewer watches, and takes control', async () => {
    const other = await Page.open(browser, view.url);
    await other.until(({ state }) => state?.viewers === 2 && state.controls === false);
    await other.textBecomes('#notes', /You are watching; viewer 1 controls/);
    assert.equal(await other.figure('viewers'), '2, you are viewer 2');
    for (const name of ['#record', '#keep', '#apply']) {
      assert.equal(await other.tab.locator(name).isDisabled(), true, name);
    }
    await other.press('c');
    assert.equal(await other.tab.locator('#fields input').first().isDisabled(), true);
    await other.screenshot('watching');
    await other.press('Escape');
    await other.click('#control');
    await other.until(({ state }) => state.controls);
    await page.until(({ state }) => !state.controls);
    assert.equal(await other.tab.locator('#record').isDisabled(), false);
    await page.press('t');
    await page.until(({ state }) => state.controls);
    await other.until(({ state }) => !state.controls);
    await other.close();
    await page.until(({ state }) => state.viewers === 1);
  });

  test('nobody gets in without the token', async () => {
    const { origin, searchParams } = new URL(view.url);
    const wrong = searchParams.get('token').replace(/.$/, (last) => (last === '0' ? '1' : '0'));
    for (const address of ['/', '/?token=', `/?token=${wrong}`]) {
      const { status, text } = await ask(origin + address);
      assert.equal(status, 403);
      assert.match(text, /token/);
    }
    assert.equal((await askStream(`${origin}/stream?token=${wrong}`)).status, 403);
    assert.equal((await ask(`${origin}/main.js`)).status, 200);
  });

  test('pages of other origins do not get in', async () => {
    const stream = view.url.replace('/?', '/stream?');
    assert.equal((await askStream(stream, { Origin: 'http://example.net' })).status, 403);
    assert.equal((await askStream(stream, { Origin: new URL(view.url).origin })).status, 101);
    assert.equal((await ask(view.url, { Host: 'example.net' })).status, 421);
  });

  test('a message that is too long ends only its own connection', async () => {
    const code = await page.tab.evaluate(() => new Promise((resolve) => {
      const socket = new WebSocket(`${location.origin.replace('http', 'ws')}/stream${location.search}`);
      socket.onopen = () => socket.send('x'.repeat(2 ** 21));
      socket.onclose = (event) => resolve(event.code);
    }));
    assert.notEqual(code, 1000);
    await page.moreFrames(10);
  });

  test('a request that is not one is answered', async () => {
    const answer = await page.tab.evaluate(() => new Promise((resolve) => {
      const socket = new WebSocket(`${location.origin.replace('http', 'ws')}/stream${location.search}`);
      socket.onopen = () => socket.send('nonsense');
      socket.onmessage = ({ data }) => {
        const message = typeof data === 'string' ? JSON.parse(data) : {};
        if (message.type === 'failed') {
          resolve(message.message);
          socket.close();
        }
      };
    }));
    assert.ok(answer.length > 0);
    await page.moreFrames(10);
  });
});
