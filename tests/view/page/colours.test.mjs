import assert from 'node:assert/strict';
import { test } from 'node:test';
import { COLOURS, paint } from '../../../host/view/page/colours.js';

test('levels become colours, and a level that is not a number is transparent', () => {
  const pixels = new Uint32Array(6);
  paint([-200, -80, 0, 10, NaN], pixels, 1, [-80, 0]);
  assert.deepEqual([...pixels], [0, COLOURS[0], COLOURS[0], COLOURS[255], COLOURS[255], 0]);
});
