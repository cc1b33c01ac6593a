// SPDX-License-Identifier: Apache-2.0
//
// A thread of the module's, in Node. Messages that come before its script is there are kept for it.
import { parentPort, workerData } from 'node:worker_threads';
import { actAsWebWorker } from './node.js';

actAsWebWorker();
const loaded = import(workerData);
parentPort.on('message', (data) => loaded.then(() => globalThis.onmessage({ data })));
