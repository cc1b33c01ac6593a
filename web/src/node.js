// SPDX-License-Identifier: Apache-2.0
//
// Makes a worker thread of Node look like a web worker, as far as the module's own loader looks.
import os from 'node:os';
import { Worker as Thread, parentPort } from 'node:worker_threads';

class WebWorker {
  constructor(url) {
    this.thread = new Thread(new URL('./node-thread.js', import.meta.url), { workerData: String(url) });
    this.thread.unref();
    this.thread.on('message', (data) => this.onmessage?.({ data }));
    this.thread.on('error', (error) => this.onerror?.({ message: error.message, filename: String(url), lineno: 0 }));
  }

  postMessage(data, transfer) {
    this.thread.postMessage(data, transfer);
  }

  terminate() {
    this.thread.terminate();
  }
}

export function actAsWebWorker() {
  globalThis.self = globalThis;
  globalThis.location = { href: import.meta.url };
  globalThis.importScripts = () => {
    throw new TypeError('a module worker has no importScripts');
  };
  globalThis.Worker = WebWorker;
  globalThis.postMessage = (data, transfer) => parentPort.postMessage(data, transfer);
  globalThis.navigator ??= { hardwareConcurrency: os.cpus().length };
}
