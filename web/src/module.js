// SPDX-License-Identifier: Apache-2.0
//
// Loads one of the two builds, in the worker. The files are named by URLs relative to this one, in the form that
// bundlers understand; a page that keeps them elsewhere says where.

const files = {
  'tarnstitch-threads.js': () => new URL('./tarnstitch-threads.js', import.meta.url).href,
  'tarnstitch-threads.worker.js': () => new URL('./tarnstitch-threads.worker.js', import.meta.url).href,
  'tarnstitch-threads.wasm': () => new URL('./tarnstitch-threads.wasm', import.meta.url).href,
  'tarnstitch-single.js': () => new URL('./tarnstitch-single.js', import.meta.url).href,
  'tarnstitch-single.wasm': () => new URL('./tarnstitch-single.wasm', import.meta.url).href,
};

const initialPages = 512; // as the build says: 32 MB
const mostPages = [16384, 8192, 4096]; // 1 GB; less where a device does not let us reserve it

function unsupported(message) {
  return Object.assign(new Error(message), { problem: 'unsupported' });
}

/** Whether memory may be shared here: what the build with threads needs. */
export function canShareMemory() {
  try {
    if (globalThis.crossOriginIsolated === false) {
      return false;
    }
    const memory = new WebAssembly.Memory({ initial: 1, maximum: 1, shared: true });
    return memory.buffer instanceof SharedArrayBuffer;
  } catch {
    return false;
  }
}

/** Whether the processor's vectors can be used. Without them neither build runs. */
export function hasVectors() {
  // (module (func (result v128) i32.const 0 i8x16.splat i8x16.popcnt))
  return WebAssembly.validate(new Uint8Array([
    0, 97, 115, 109, 1, 0, 0, 0, 1, 5, 1, 96, 0, 1, 123, 3, 2, 1, 0, 10, 10, 1, 8, 0, 65, 0, 253, 15, 253, 98, 11,
  ]));
}

function sharedMemory() {
  for (const maximum of mostPages) {
    try {
      return new WebAssembly.Memory({ initial: initialPages, maximum, shared: true });
    } catch {
      // A device may refuse to set so much aside: less is tried.
    }
  }
  return null;
}

async function compile(url) {
  if (typeof process === 'object' && process.versions?.node && url.startsWith('file:')) {
    const { readFile } = await import(/* @vite-ignore */ /* webpackIgnore: true */ 'node:fs/promises');
    return WebAssembly.compile(await readFile(new URL(url)));
  }
  const response = await fetch(url);
  if (!response.ok) {
    throw new Error(`${url}: ${response.status} ${response.statusText}`);
  }
  if (WebAssembly.compileStreaming && response.headers.get('Content-Type') === 'application/wasm') {
    return WebAssembly.compileStreaming(response);
  }
  return WebAssembly.compile(await response.arrayBuffer());
}

/**
 * @param {Record<string, string>} located  URLs that take the place of the files' own, by name
 * @param {boolean | undefined} wantThreads  undefined: where they can be had
 * @param {() => void} onAbort  the module has died
 * @param {(started: boolean) => void} onStart  called with false before its threads are started, with true right after
 * @returns {Promise<{ exports: object, memory: WebAssembly.Memory, threads: boolean }>}
 */
export async function loadModule(located, wantThreads, onAbort, onStart) {
  if (!hasVectors()) {
    throw unsupported('This browser has no WebAssembly SIMD.');
  }
  const memory = wantThreads !== false && canShareMemory() ? sharedMemory() : null;
  if (wantThreads === true && !memory) {
    throw unsupported('Threads need shared memory, which this page may not have.');
  }
  const name = memory ? 'tarnstitch-threads' : 'tarnstitch-single';
  const locate = (file) => located[file] ?? files[file]?.() ?? file;
  const [{ default: create }, wasm] = await Promise.all([
    import(/* @vite-ignore */ /* webpackIgnore: true */ locate(`${name}.js`)),
    compile(locate(`${name}.wasm`)),
  ]);
  let instance;
  if (memory) {
    onStart(false);
    setTimeout(onStart, 0, true);
  }
  const module = await create({
    ...(memory ? { wasmMemory: memory } : {}),
    locateFile: locate,
    mainScriptUrlOrBlob: locate(`${name}.js`),
    print() {},
    printErr() {},
    onAbort,
    instantiateWasm(imports, receive) {
      WebAssembly.instantiate(wasm, imports).then((made) => {
        instance = made;
        receive(made, wasm);
      }, onAbort);
      return {};
    },
  });
  const own = memory ?? Object.values(instance.exports).find((item) => item instanceof WebAssembly.Memory);
  return { exports: module, memory: own, threads: memory !== null };
}
