/** What most suites begin with. */
import assert from 'node:assert/strict';
import { after, before } from 'node:test';
import { STILL } from './documents.mjs';
import { launch, Page } from './pages.mjs';
import { makeDirectory, startView } from './programs.mjs';

/**
 * Starts a view of a still target in a directory of its own, and opens its page, for all tests of a suite.
 *
 * @param prepare  writes files into the directory; returns the arguments of the view
 * @param ready    receives directory, view, browser and page
 */
export function useView(prepare, ready) {
  const used = {};

  before(async () => {
    used.directory = makeDirectory();
    used.directory.write('scene.json', STILL);
    used.view = await startView(used.directory, prepare(used.directory));
    used.browser = await launch();
    used.page = await Page.open(used.browser, used.view.url);
    ready(used);
  });

  after(async () => {
    await used.page.close();
    await used.browser.close();
    assert.equal(await used.view.end(), 0);
    used.directory.remove();
  });
}

/** The arguments of a view of a simulated server with a configuration. */
export function simulated(configuration) {
  return (directory) => {
    directory.write('garage.json', configuration);
    return ['garage.json', '--connect', 'sim:--scene scene.json'];
  };
}
