// SPDX-License-Identifier: Apache-2.0
//
// The package's start where threads cannot be started, by a worker that plays the browser.
import assert from 'node:assert/strict';
import { after, before, describe, it } from 'node:test';
import { Sweep, SweepError, configure, preload, shutDown } from '../../src/index.js';

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

describe('a worker that crashes', () => {
  // In place of a worker: answers whatever it is asked but for finish and frames, until the test lets it crash.
  class FragileWorker {
    static all = [];
    #heard = {};
    asked = [];
    isTerminated = false;

    constructor() {
      FragileWorker.all.push(this);
    }

    addEventListener(type, heard) {
      this.#heard[type] = heard;
    }

    postMessage({ id, command, finish }) {
      this.asked.push(command === 'abandon' ? `abandon ${finish}` : command);
      const results = { load: { threads: true, version: 'of the test' }, begin: {}, end: {}, memory: 1 };
      if (command in results) {
        queueMicrotask(() => this.#heard.message({ data: { id, result: results[command] } }));
      }
    }

    tell(type, event) {
      this.#heard[type](event);
    }

    terminate() {
      this.isTerminated = true;
    }
  }
  const frame = { data: new Uint8Array(4), width: 1, height: 1 };
  const crashed = (text) => (error) => error instanceof SweepError && error.problem === 'crashed' && text.test(error.message);

  before(() => {
    shutDown();
    configure({ threads: 'auto', worker: () => new FragileWorker() });
  });
  after(() => shutDown());

  it('is told of to all who wait, and followed by another one', async () => {
    const ways = [
      ['error', { message: 'out of memory' }, /out of memory/],
      ['error', {}, /could not be started/],
      ['messageerror', {}, /could not be read/],
      ['message', { data: { event: 'died', text: 'aborted' } }, /aborted/],
    ];
    for (const [type, event, text] of ways) {
      const sweep = await Sweep.begin();
      const worker = FragileWorker.all.at(-1);
      const inside = sweep.feed(frame);
      const waiting = sweep.feed(frame, { everyFrame: true });
      const status = sweep.status();
      await new Promise(setImmediate);
      assert.deepEqual(worker.asked, ['load', 'begin', 'status', 'feed']);
      worker.tell(type, event);
      for (const promise of [inside, waiting, status]) {
        await assert.rejects(promise, crashed(text));
      }
      assert.ok(sweep.isOver && worker.isTerminated);
      await assert.rejects(sweep.finish(), { problem: 'over' });
    }
    const next = await Sweep.begin();
    assert.ok(!next.isOver);
    assert.equal(FragileWorker.all.length, ways.length + 1);
    next.end();
  });

  it('is let go of where it cannot be made', async () => {
    shutDown();
    configure({ worker: () => { throw new TypeError('not allowed here'); } });
    await assert.rejects(Sweep.begin(), crashed(/not allowed/));
    await assert.rejects(Sweep.begin({ signal: AbortSignal.abort() }), { name: 'AbortError' });
    configure({ worker: () => new FragileWorker() });
    (await Sweep.begin()).end();
  });

  it('is told which finish is not wanted any more', async () => {
    const sweep = await Sweep.begin();
    const worker = FragileWorker.all.at(-1);
    const before = worker.asked.length;
    const [first, second] = [new AbortController(), new AbortController()];
    const finishes = [first, second].map(({ signal }) => assert.rejects(sweep.finish({ signal }), { name: 'AbortError' }));
    await new Promise(setImmediate);
    second.abort();
    first.abort();
    await Promise.all(finishes);
    assert.match(worker.asked.slice(before).join(), /^finish,finish,abandon (\d+),abandon (\d+)$/);
    assert.ok(!sweep.isOver);
    sweep.end();
  });

  it('is waited for no longer than the signal says', async () => {
    shutDown();
    configure({ worker: () => Object.assign(new FragileWorker(), { postMessage() {} }) });
    const controller = new AbortController();
    const begun = assert.rejects(Sweep.begin({ signal: controller.signal }), { name: 'AbortError' });
    controller.abort();
    await begun;
    shutDown();
  });
});
