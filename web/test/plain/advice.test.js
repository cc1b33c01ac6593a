// SPDX-License-Identifier: Apache-2.0
//
// The page's warnings: how long each is held, and which takes the place of which. By a clock that the test turns.
import assert from 'node:assert/strict';
import { after, before, describe, it } from 'node:test';
import { Advice } from '../../live/advice.js';

describe('a warning', () => {
  const kept = { performance: globalThis.performance, setTimeout: globalThis.setTimeout, clearTimeout: globalThis.clearTimeout };
  let now = 0;
  let timers = new Map();
  let last = 0;
  const stub = (name, value) => Object.defineProperty(globalThis, name, { configurable: true, writable: true, value });

  function pass(milliseconds) {
    now += milliseconds;
    for (const [timer, { at, run }] of timers) {
      if (at <= now) {
        timers.delete(timer);
        run();
      }
    }
  }

  before(() => {
    stub('performance', { now: () => now });
    stub('setTimeout', (run, wait) => timers.set(++last, { at: now + wait, run }) && last);
    stub('clearTimeout', (timer) => timers.delete(timer));
  });
  after(() => Object.entries(kept).forEach(([name, value]) => stub(name, value)));

  function made() {
    now = 5000;
    timers = new Map();
    const parts = { path: { setAttribute: (name, value) => (parts.shape = value) }, span: {} };
    const box = { hidden: true, dataset: {}, querySelector: (name) => parts[name] };
    const speech = {};
    const advice = new Advice(box, speech);
    const shown = () => (box.hidden ? null : parts.span.textContent);
    return { advice, box, parts, shown, speech };
  }

  it('is held for a second, though its cause is gone', () => {
    const { advice, shown } = made();
    advice.set('too-fast');
    assert.equal(shown(), 'Slower');
    pass(100);
    advice.set(null);
    pass(899);
    assert.equal(shown(), 'Slower');
    pass(1);
    assert.equal(shown(), null);
  });

  it('stays while its cause comes again', () => {
    const { advice, shown } = made();
    advice.set('too-fast');
    pass(500);
    advice.set(null);
    pass(300);
    advice.set('too-fast');
    pass(5000);
    assert.equal(shown(), 'Slower');
    advice.set(null);
    assert.equal(shown(), null, 'it has been there for long');
  });

  it('gives way to a graver one at once, and to a lighter one after its second', () => {
    const { advice, box, shown } = made();
    advice.set('few-details');
    advice.set('lost');
    assert.match(shown(), /^Lost/);
    assert.equal(box.dataset.kind, 'bad');
    pass(10);
    advice.set('too-fast');
    assert.match(shown(), /^Lost/);
    pass(990);
    assert.equal(shown(), 'Slower');
    assert.equal(box.dataset.kind, 'warn');
  });

  it('is told in words, by colour and by shape, and to those who listen', () => {
    const shapes = new Set();
    for (const name of ['too-fast', 'wrong-way', 'skewed', 'few-details', 'lost', 'pipeline-failed', 'rotated', 'hidden', 'slow']) {
      const { advice, box, parts, shown, speech } = made();
      advice.set(name);
      assert.match(shown(), /\w/, name);
      assert.equal(speech.textContent, shown());
      assert.match(box.dataset.kind, /^(warn|bad|note)$/);
      assert.match(parts.shape, /^M/);
      shapes.add(parts.shape);
      advice.clear();
      assert.equal(shown(), null);
    }
    assert.ok(shapes.size >= 6);
  });
});
