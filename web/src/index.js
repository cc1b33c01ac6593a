// SPDX-License-Identifier: Apache-2.0
//
// Panorama stitching for the camera in a browser. index.d.ts describes what is exported here.

const isNode = typeof process === 'object' && Boolean(process.versions?.node) && typeof window === 'undefined';

const longestStart = 3000; // ms
const hangs = 'the browser does not start threads';
const wasShutDown = 'the package was shut down';
const directions = ['any', 'left', 'right', 'up', 'down'];
const settings = { located: {}, threads: undefined, worker: undefined };
let host = null; // the worker, once for all sweeps
let starting = null; // the promise of it
let opening = null; // the worker that is being loaded
let ends = 0; // how often the package was shut down
let current = null; // the sweep that has not ended

export class SweepError extends Error {
  constructor(problem, message) {
    super(message);
    this.name = 'SweepError';
    this.problem = problem;
  }
}

const isOver = () => new SweepError('over', 'the sweep is over');

// The promise's outcome, or the signal's reason if that comes first.
function unlessAborted(promise, signal, onAbort = () => {}) {
  if (!signal) {
    return promise;
  }
  return new Promise((resolve, reject) => {
    const abort = () => {
      onAbort();
      reject(signal.reason);
    };
    signal.addEventListener('abort', abort, { once: true });
    const settle = (finish) => (value) => {
      signal.removeEventListener('abort', abort);
      finish(value);
    };
    promise.then(settle(resolve), settle(reject));
    if (signal.aborted) {
      abort();
    }
  });
}

function checkDirection(direction) {
  if (!directions.includes(direction)) {
    throw new SweepError('bad-argument', `direction is ${JSON.stringify(direction)}, not one of ${directions.join(', ')}`);
  }
}

function startWorker() {
  if (settings.worker) {
    return settings.worker();
  }
  return new Worker(new URL('./worker.js', import.meta.url), { type: 'module', name: 'tarnstitch' });
}

async function startThread() {
  const { Worker: Thread } = await import(/* @vite-ignore */ /* webpackIgnore: true */ 'node:worker_threads');
  const thread = new Thread(new URL('./worker.js', import.meta.url), { name: 'tarnstitch' });
  thread.addEventListener = (type, heard) => thread.on(type, (data) => heard(type === 'message' ? { data } : data));
  return thread;
}

// The requests that the worker has not answered, and what it tells by itself.
class Host {
  #worker;
  #pending = new Map();
  #next = 1;
  #dead = null;
  #watch = 0; // runs while threads are started

  constructor(worker) {
    this.#worker = worker;
    worker.addEventListener('message', ({ data }) => this.#hear(data));
    worker.addEventListener('error', (event) => this.fail(event.message || 'the worker could not be started'));
    worker.addEventListener('messageerror', () => this.fail('a message could not be read'));
  }

  request(command, fields = {}, transfer = [], { onProgress, signal } = {}) {
    if (this.#dead) {
      return Promise.reject(new SweepError('crashed', this.#dead));
    }
    const id = this.#next++;
    return new Promise((resolve, reject) => {
      const abort = () => {
        this.#worker.postMessage({ command: 'abandon', finish: id });
        settle(() => reject(signal.reason));
      };
      const settle = (finish) => {
        if (this.#pending.delete(id)) {
          signal?.removeEventListener('abort', abort);
          if (this.#pending.size === 0) {
            this.#worker.unref?.();
          }
          finish();
        }
      };
      this.#pending.set(id, {
        onProgress,
        resolve: (value) => settle(() => resolve(value)),
        reject: (error) => settle(() => reject(error)),
      });
      this.#worker.ref?.();
      signal?.addEventListener('abort', abort, { once: true });
      try {
        this.#worker.postMessage({ id, command, ...fields }, transfer);
      } catch (error) {
        this.#pending.get(id).reject(new SweepError('bad-argument', error.message));
      }
    });
  }

  #hear({ id, event, result, error, ...rest }) {
    const asked = this.#pending.get(id);
    if (event === 'died') {
      this.fail(rest.text);
    } else if (event === 'starting') {
      this.#watch = setTimeout(() => this.fail(hangs), longestStart);
    } else if (event === 'started') {
      clearTimeout(this.#watch);
    } else if (event === 'progress') {
      asked?.onProgress?.({ done: rest.done, keyFrames: rest.keyFrames });
    } else if (error) {
      asked?.reject(new SweepError(error.problem, error.message));
    } else {
      asked?.resolve(result);
    }
  }

  /** The worker is not used any more; who waits is told, and the next sweep gets a new one. */
  fail(text) {
    if (this.#dead) {
      return;
    }
    this.#dead = text;
    clearTimeout(this.#watch);
    if (host?.host === this) {
      host = null;
    }
    for (const { reject } of [...this.#pending.values()]) {
      reject(new SweepError('crashed', text));
    }
    this.#worker.terminate();
  }
}

async function startWith(threads) {
  const begunAfter = ends;
  let made = null;
  try {
    made = new Host(isNode && !settings.worker ? await startThread() : startWorker());
    if (begunAfter !== ends) {
      throw new SweepError('crashed', wasShutDown);
    }
    opening = made;
    return { host: made, ...(await made.request('load', { located: settings.located, threads })) };
  } catch (error) {
    made?.fail(error.message);
    throw error instanceof SweepError ? error : new SweepError('crashed', error.message);
  } finally {
    if (opening === made) {
      opening = null;
    }
  }
}

// Firefox hangs now and then in a worker that starts workers, which takes others some tenths of a second. Such a worker
// is given up for another one; after three without threads, unless these are a must.
async function start() {
  const { threads: wanted } = settings;
  for (const threads of [wanted, wanted, wanted, wanted ?? false]) {
    try {
      return await startWith(threads);
    } catch (error) {
      if (error.message !== hangs) {
        throw error;
      }
    }
  }
  throw new SweepError('crashed', hangs);
}

function ready() {
  if (!host && !starting) {
    const asked = start().then(
      (made) => {
        if (starting === asked) {
          starting = null;
          host = made;
        }
        return made;
      },
      (error) => {
        if (starting === asked) {
          starting = null;
        }
        throw error;
      },
    );
    starting = asked;
  }
  return host ? Promise.resolve(host) : starting;
}

export function configure({ locate, threads, worker } = {}) {
  if (host || starting) {
    throw new SweepError('bad-argument', 'configure comes before the first sweep, or after shutDown');
  }
  if (locate) {
    for (const build of ['threads', 'single']) {
      for (const ending of ['.js', '.wasm', ...(build === 'threads' ? ['.worker.js'] : [])]) {
        const name = `tarnstitch-${build}${ending}`;
        settings.located[name] = String(new URL(locate(name), isNode ? undefined : document.baseURI));
      }
    }
  }
  if (threads !== undefined) {
    settings.threads = threads === 'auto' ? undefined : threads;
  }
  if (worker) {
    settings.worker = worker;
  }
}

export async function preload({ signal } = {}) {
  signal?.throwIfAborted();
  const { threads, version } = await unlessAborted(ready(), signal);
  return { threads, version };
}

export async function memoryInUse() {
  return host ? host.host.request('memory') : 0;
}

export function shutDown() {
  ++ends;
  current?.end();
  opening?.fail(wasShutDown);
  host?.host.fail(wasShutDown);
  host = null;
  starting = null;
}

// A camera's frame as something that a worker can be given. The page's own objects are left to it: what is closed
// over there is a clone, and bytes are copied at once, since the frame may have to wait.
async function portable(frame) {
  try {
    return await cloned(frame);
  } catch (error) {
    // What browsers say of a frame that is closed, or that the page may not read.
    throw error instanceof SweepError ? error : new SweepError('bad-argument', error.message);
  }
}

async function cloned(frame) {
  if (typeof HTMLVideoElement !== 'undefined' && frame instanceof HTMLVideoElement) {
    if (frame.readyState < 2 || frame.videoWidth === 0) {
      throw new SweepError('bad-argument', 'the video has no frame yet');
    }
    const taken = typeof VideoFrame !== 'undefined' ? new VideoFrame(frame) : await createImageBitmap(frame);
    return { source: taken, transfer: [taken] };
  }
  if (typeof VideoFrame !== 'undefined' && frame instanceof VideoFrame) {
    const clone = frame.clone();
    return { source: clone, transfer: [clone] };
  }
  if (typeof ImageBitmap !== 'undefined' && frame instanceof ImageBitmap) {
    const copy = await createImageBitmap(frame);
    return { source: copy, transfer: [copy] };
  }
  if (frame?.data && frame.width > 0 && frame.height > 0) {
    const { data, width, height, stride, format } = frame;
    const bytes = ArrayBuffer.isView(data)
      ? new Uint8Array(data.buffer, data.byteOffset, data.byteLength)
      : new Uint8Array(data);
    const copy = bytes.slice();
    return { source: { data: copy, width, height, stride, format }, transfer: [copy.buffer] };
  }
  throw new SweepError('bad-argument', 'a frame is a VideoFrame, an HTMLVideoElement, an ImageBitmap, an ImageData or raw pixels');
}

export class Sweep {
  #host;
  #upright;
  #direction;
  #mostUnderWay;
  #inside = false;
  #next = null; // the newest frame that waits, with what to tell whoever fed it
  #line = []; // frames of which none may be lost
  #unanswered = new Set(); // promises of all that feed has not answered yet
  #finishes = new Set(); // what stops those under way
  #preview = null;
  #over = false;
  #forgetSignal = () => {};

  droppedFrames = 0;
  fedFrames = 0;

  constructor(token, { direction, upright, mostUnderWay }) {
    if (token !== begun) {
      throw new TypeError('a sweep is begun by Sweep.begin');
    }
    this.#host = token.host;
    this.#direction = direction;
    this.#upright = upright;
    this.#mostUnderWay = mostUnderWay;
  }

  static async begin({ direction = 'any', upright = true, mostUnderWay = 3, signal } = {}) {
    checkDirection(direction);
    if (!(mostUnderWay >= 0)) {
      throw new SweepError('bad-argument', `mostUnderWay is ${mostUnderWay}`);
    }
    signal?.throwIfAborted();
    const { host: made, threads, version } = await unlessAborted(ready(), signal);
    signal?.throwIfAborted();
    current?.end();
    begun.host = made;
    const sweep = new Sweep(begun, { direction, upright, mostUnderWay });
    sweep.threads = threads;
    sweep.version = version;
    current = sweep;
    const abort = () => sweep.end();
    signal?.addEventListener('abort', abort, { once: true });
    sweep.#forgetSignal = () => signal?.removeEventListener('abort', abort);
    try {
      await made.request('begin', { upright });
    } catch (error) {
      sweep.#learn(error);
      throw error;
    }
    signal?.throwIfAborted();
    return sweep;
  }

  get direction() {
    return this.#direction;
  }

  set direction(value) {
    checkDirection(value);
    this.#direction = value;
  }

  get preview() {
    return this.#preview;
  }

  get isOver() {
    return this.#over;
  }

  feed(frame, options = {}) {
    const answer = this.#take(frame, options);
    this.#unanswered.add(answer);
    const forget = () => this.#unanswered.delete(answer);
    answer.then(forget, forget);
    return answer;
  }

  async #take(frame, { direction = this.#direction, everyFrame = false, signal }) {
    this.#mustGoOn();
    signal?.throwIfAborted();
    checkDirection(direction);
    const { source, transfer } = await portable(frame);
    if (this.#over || signal?.aborted) {
      closeAll(transfer);
      throw this.#over ? isOver() : signal.reason;
    }
    ++this.fedFrames;
    const waiting = { source, transfer, direction };
    const answer = new Promise((resolve, reject) => {
      Object.assign(waiting, { resolve, reject });
      if (!this.#inside) {
        this.#send(waiting);
      } else if (everyFrame) {
        this.#line.push(waiting);
      } else {
        this.#dropWaiting();
        this.#next = waiting;
      }
    });
    return unlessAborted(answer, signal, () => this.#takeBack(waiting));
  }

  #dropWaiting() {
    if (this.#next) {
      ++this.droppedFrames;
      closeAll(this.#next.transfer);
      this.#next.resolve(null);
      this.#next = null;
    }
  }

  // A frame that is inside by now cannot be had back: only its answer is not waited for.
  #takeBack(waiting) {
    const at = this.#line.indexOf(waiting);
    if (this.#next === waiting) {
      this.#next = null;
    } else if (at >= 0) {
      this.#line.splice(at, 1);
    } else {
      return;
    }
    closeAll(waiting.transfer);
  }

  async #send({ source, transfer, direction, resolve, reject }) {
    this.#inside = true;
    try {
      const { answer, preview, width, height } = await this.#host.request(
        'feed', { source, direction, mostUnderWay: this.#mostUnderWay }, transfer);
      if (preview) {
        const { data = this.#preview?.data, crop = this.#preview?.crop } = preview;
        this.#preview = { ...preview, data, crop };
      }
      resolve({ ...answer, frameWidth: width, frameHeight: height });
    } catch (error) {
      this.#learn(error);
      reject(error);
    }
    this.#inside = false;
    const next = this.#line.shift() ?? this.#next;
    if (next === this.#next) {
      this.#next = null;
    }
    if (next) {
      this.#send(next);
    }
  }

  async status() {
    this.#mustGoOn();
    return this.#host.request('status');
  }

  async finish({ onProgress, signal, wait = true } = {}) {
    this.#mustGoOn();
    signal?.throwIfAborted();
    const stop = new AbortController();
    const abort = () => stop.abort(signal.reason);
    signal?.addEventListener('abort', abort, { once: true });
    this.#finishes.add(stop);
    let found;
    try {
      // The frames that were fed before belong to it.
      await unlessAborted(Promise.allSettled([...this.#unanswered]), stop.signal);
      this.#mustGoOn();
      found = await this.#host.request('finish', { wait }, [], { onProgress, signal: stop.signal });
    } catch (error) {
      this.#learn(error);
      throw error;
    } finally {
      signal?.removeEventListener('abort', abort);
      this.#finishes.delete(stop);
    }
    const { jpeg, cropped, ...rest } = found;
    return {
      ...rest,
      blob: jpeg ? new Blob([jpeg], { type: 'image/jpeg' }) : null,
      croppedBlob: cropped ? new Blob([cropped], { type: 'image/jpeg' }) : null,
    };
  }

  end() {
    if (this.#over) {
      return;
    }
    this.#setOver();
    this.#dropWaiting();
    for (const waiting of this.#line.splice(0)) {
      closeAll(waiting.transfer);
      waiting.reject(isOver());
    }
    for (const stop of this.#finishes) {
      stop.abort(isOver());
    }
    this.#host.request('end').catch(() => {});
  }

  #learn(error) {
    if (error?.problem === 'over' || error?.problem === 'crashed') {
      this.#setOver();
    }
  }

  #setOver() {
    this.#over = true;
    this.#forgetSignal();
    if (current === this) {
      current = null;
    }
  }

  #mustGoOn() {
    if (this.#over) {
      throw isOver();
    }
  }
}

const begun = { host: null };

function closeAll(items) {
  items.forEach((item) => item.close?.());
}
