// SPDX-License-Identifier: Apache-2.0
//
// The worker that the module lives in: requests come in and are answered in their order, one at a time, and
// nothing that takes long is done without listening in between.
import { Engine, EngineError } from './engine.js';
import { loadModule } from './module.js';
import { fetchPixels } from './pixels.js';

let port = globalThis;
let engine = null;
let answered = 0; // the number of the last request that was
const abandoned = new Set(); // finishes that are not wanted any more

// A turn of the event loop, so that messages are heard. Unlike a timer's it is not slowed down when nested.
const turns = new MessageChannel();
const waiting = [];
turns.port1.onmessage = () => waiting.shift()?.();
turns.port1.unref?.();
function listen() {
  return new Promise((resolve) => {
    waiting.push(resolve);
    turns.port1.ref?.();
    turns.port2.postMessage(0);
  });
}

async function hold(most) {
  while (engine.isBegun && engine.status().underWay > most) {
    if (!engine.letWorkersRun(most)) {
      return; // nothing moves: the library will say so
    }
    await listen();
  }
}

const commands = {
  async load({ located, threads }) {
    const died = (reason) => {
      engine = null;
      port.postMessage({ event: 'died', text: String(reason?.message ?? reason ?? 'the module has stopped') });
    };
    const onStart = (started) => port.postMessage({ event: started ? 'started' : 'starting' });
    engine ??= new Engine(await loadModule(located, threads, died, onStart));
    return { threads: engine.threads, version: engine.version };
  },

  begin({ upright }) {
    engine.begin(upright);
    return {};
  },

  async feed({ source, direction, mostUnderWay }) {
    await hold(mostUnderWay);
    const arrived = performance.now();
    const frame = await fetchPixels(engine, source);
    const fetched = performance.now();
    const answer = engine.feed(frame, direction);
    answer.fetchMilliseconds = fetched - arrived;
    const preview = engine.preview();
    return { answer, preview, width: frame.width, height: frame.height };
  },

  status() {
    return engine.status();
  },

  memory() {
    return engine.memoryBytes;
  },

  async finish({ wait, id }) {
    let told = -1;
    for (;;) {
      if (abandoned.has(id)) {
        return null;
      }
      const { keyFrames, underWay } = engine.status();
      if (keyFrames - underWay !== told) {
        told = keyFrames - underWay;
        port.postMessage({ event: 'progress', id, done: told, keyFrames });
      }
      if (underWay === 0 || !wait) {
        break;
      }
      const moves = engine.letWorkersRun(0);
      await listen();
      if (!moves) {
        break;
      }
    }
    const panorama = engine.finish(wait && engine.status().underWay === 0);
    // The last frame may have become a key frame of its own.
    if (panorama.extent === 'whole' && panorama.keyFrames !== told) {
      port.postMessage({ event: 'progress', id, done: panorama.keyFrames, keyFrames: panorama.keyFrames });
    }
    return panorama;
  },

  end() {
    engine.end();
    return {};
  },
};

function transferable(result) {
  return [result?.preview?.data, result?.jpeg, result?.cropped].flatMap((data) => (data ? [data.buffer] : []));
}

let last = Promise.resolve();

async function serve({ id, command, ...request }) {
  try {
    if (!engine && command !== 'load') {
      throw new EngineError('crashed', 'the module has stopped');
    }
    const result = await commands[command]({ ...request, id });
    port.postMessage({ id, result }, transferable(result));
  } catch (error) {
    const text = error instanceof Error ? error.message : `exception ${error}`;
    port.postMessage({ id, error: { problem: error?.problem ?? 'unexpected', message: text } });
  }
  answered = id;
  abandoned.delete(id);
  // Without threads a key frame's worker runs here, when the frame has been answered.
  if (engine?.workersQueued) {
    await listen();
    engine?.letWorkersRun(0);
  }
}

function receive({ data }) {
  if (data?.command === 'abandon') {
    if (data.finish > answered) {
      abandoned.add(data.finish);
    }
  } else if (data?.command) {
    last = last.then(() => serve(data));
  }
}

if (typeof process === 'object' && process.versions?.node) {
  Promise.all([
    import(/* @vite-ignore */ /* webpackIgnore: true */ 'node:worker_threads'),
    import(/* @vite-ignore */ /* webpackIgnore: true */ './node.js'),
  ]).then(([{ parentPort }, { actAsWebWorker }]) => {
    actAsWebWorker();
    port = parentPort;
    parentPort.on('message', (data) => receive({ data }));
  });
} else {
  globalThis.addEventListener('message', receive);
}
