// SPDX-License-Identifier: Apache-2.0
//
// The package's start where threads cannot be started, by a worker that plays the browser.
import assert from 'node:assert/strict';
import { after, before, describe, it } from 'node:test';
import { configure, preload, shutDown } from '../../src/index.js';

describe('a browser that hangs when threads are started', () => {
  // In place of a worker: never gets further with threads than to their start.
  class HangingWorker {
    static asked = [];
    static givenUp = 0;
    #hear = () => {};

    addEventListener(type, heard) {
      if (type === 'message') {
        this.#hear = heard;
      }
    }

    postMessage({ id, command, threads }) {
      assert.equal(command, 'load');
      HangingWorker.asked.push(threads);
      queueMicrotask(() => {
        this.#hear({ data: { event: 'starting' } });
        if (threads === false) {
          this.#hear({ data: { event: 'started' } });
          this.#hear({ data: { id, result: { threads: false, version: 'of the test' } } });
        } else {
          queueMicrotask(passTime);
        }
      });
    }

    terminate() {
      ++HangingWorker.givenUp;
    }
  }

  const { setTimeout: keptSet, clearTimeout: keptClear } = globalThis;
  let timers = new Map();
  function passTime() {
    const due = [...timers.values()];
    timers = new Map();
    due.forEach((run) => run());
  }

  before(() => {
    let last = 0;
    globalThis.setTimeout = (run) => {
      timers.set(++last, run);
      return last;
    };
    globalThis.clearTimeout = (timer) => timers.delete(timer);
  });
  after(() => {
    globalThis.setTimeout = keptSet;
    globalThis.clearTimeout = keptClear;
    shutDown();
  });

  it('is left alone after some attempts, and used without threads', async () => {
    configure({ threads: 'auto', worker: () => new HangingWorker() });
    assert.equal((await preload()).threads, false);
    assert.deepEqual(HangingWorker.asked, [undefined, undefined, undefined, false]);
    assert.equal(HangingWorker.givenUp, 3);
    assert.equal(timers.size, 0);
  });

  it('is told of where threads are a must', async () => {
    shutDown();
    configure({ threads: true });
    await assert.rejects(preload(), { problem: 'crashed', message: /threads/ });
  });
});
