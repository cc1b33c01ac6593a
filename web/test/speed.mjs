// SPDX-License-Identifier: Apache-2.0
//
// How fast: an ordinary frame beside the native host, in turns in one run; the page with a camera of 30 frames a second;
// and what each way costs by which a browser hands out a camera's pixels. Prints tables in Markdown.
//
//     scripts/bench-web.sh [frames] [page] [ways]
import { execFileSync } from 'node:child_process';
import { existsSync } from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { frames as framesFed, launch, open, serve, state } from './browser.js';
import { eachRawFrame, median, nativeRun, packageDirectory, rawFrames, root, work } from './support.js';
import { waysIn } from './ways_in.js';

const wanted = process.argv.slice(2);
const does = (name) => wanted.length === 0 || wanted.includes(name);
const rounds = 3;
const figure = (value) => value.toFixed(1);
const row = (...cells) => console.log(`| ${cells.join(' | ')} |`);
// Frames beside which no key frame is worked in: what a live call costs by itself.
const ordinary = (answers) => answers.filter(({ taken, keyFrame }) => taken && !keyFrame);
const middle = (answers) => median(ordinary(answers).map(({ milliseconds }) => milliseconds));

console.log(`${os.cpus()[0].model}, ${os.cpus().length} cores; load before the run: ${os.loadavg().map(figure).join(' ')}\n`);

async function webRun({ Sweep, configure, shutDown }, name, threads, scale) {
  shutDown();
  configure({ threads });
  const sweep = await Sweep.begin({ upright: false });
  const answers = [];
  for (const frame of eachRawFrame(rawFrames(name, true, scale), scale.height, scale.width)) {
    answers.push(await sweep.feed(frame, { everyFrame: true }));
  }
  sweep.end();
  shutDown();
  return answers;
}

async function frames() {
  const api = await import(path.join(packageDirectory, 'index.js'));
  row('frame', 'native, 2 threads', 'WebAssembly, threads', 'times', 'WebAssembly, no threads');
  row('---', '---:', '---:', '---:', '---:');
  for (const [name, width, height] of [['parking_pan', 426, 320], ['hall_slide', 960, 540], ['hall_slide', 1280, 720]]) {
    const scale = { width, height };
    const found = { native: [], threads: [], single: [] };
    for (let round = 0; round < rounds; ++round) {
      found.native.push(middle(nativeRun(name, { threads: 2, scale }).answers));
      found.threads.push(middle(await webRun(api, name, true, scale)));
      found.single.push(middle(await webRun(api, name, false, scale)));
    }
    const [native, threads, single] = [found.native, found.threads, found.single].map(median);
    const ratio = median(found.native.map((one, round) => found.threads[round] / one));
    row(`${width}x${height}`, `${figure(native)} ms`, `${figure(threads)} ms`, ratio.toFixed(2), `${figure(single)} ms`);
  }
  console.log('');
}

// Plain pictures, so that the browser does not spend the time of decoding them.
function plainCamera(name, width, height) {
  const file = path.join(work, `${name}-${width}x${height}.y4m`);
  if (!existsSync(file)) {
    execFileSync('ffmpeg', ['-v', 'error', '-y', '-i', path.join(root, 'samples', `${name}.mp4`), '-vf',
      `scale=${width}:${height},fps=30`, '-pix_fmt', 'yuv420p', file]);
  }
  return file;
}

async function onPage(camera, use) {
  const server = await serve();
  const chromium = await launch({ camera });
  try {
    const page = await open(chromium.browser, server.address);
    await state(page, 'ready');
    await page.waitForFunction(() => document.body.dataset.loaded === 'yes');
    await use(page, chromium.browser, server.address);
  } finally {
    await chromium.close();
    server.stop();
  }
}

const firstAnswer = (page) => page.evaluate(() => new Promise((resolve) => {
  const begun = performance.now();
  new MutationObserver((_, observer) => {
    observer.disconnect();
    resolve(performance.now() - begun);
  }).observe(document.body, { attributes: true, attributeFilter: ['data-frames'] });
  document.getElementById('shutter').click();
}));

async function page() {
  const seconds = 7;
  row('camera', 'first frame after the first tap', 'camera’s frames in a second', 'answered in a second', 'dropped');
  row('---', '---:', '---:', '---:', '---:');
  for (const [width, height] of [[960, 540], [1280, 720]]) {
    for (let round = 0; round < rounds; ++round) {
      await onPage(plainCamera('hall_slide', width, height), async (tab) => {
        const first = await firstAnswer(tab);
        await framesFed(tab, 5);
        const found = await tab.evaluate(async (time) => {
          const { dataset } = document.body;
          const video = document.getElementById('video');
          const shown = () => new Promise((resolve) =>
            video.requestVideoFrameCallback((_, { presentedFrames }) => resolve(presentedFrames)));
          const before = { shown: await shown(), fed: Number(dataset.frames), dropped: Number(dataset.dropped) };
          const begun = performance.now();
          await new Promise((resolve) => setTimeout(resolve, time * 1000));
          const after = { shown: await shown(), fed: Number(dataset.frames), dropped: Number(dataset.dropped) };
          const passed = (performance.now() - begun) / 1000;
          const dropped = after.dropped - before.dropped;
          return {
            shown: (after.shown - before.shown) / passed, answered: (after.fed - before.fed - dropped) / passed, dropped,
          };
        }, seconds);
        row(`${width}x${height}`, `${Math.round(first)} ms`, figure(found.shown), figure(found.answered),
          `${found.dropped} in ${seconds} s`);
      });
    }
  }
  console.log('');
}

async function ways() {
  row('way to the pixels, of 1280x720', 'the page is busy', 'until they are in the worker');
  row('---', '---:', '---:');
  await onPage(plainCamera('hall_slide', 1280, 720), async (_, browser, address) => {
    const tab = await browser.newPage();
    await tab.setBypassCSP(true);
    await tab.goto(`${address}?threads=no`);
    await state(tab, 'ready');
    for (const [name, { busy, whole }] of Object.entries(await tab.evaluate(waysIn, 60))) {
      row(name, `${figure(busy)} ms`, whole === null ? 'not here' : `${figure(whole)} ms`);
    }
  });
  console.log('');
}

for (const part of [frames, page, ways]) {
  if (does(part.name)) {
    await part();
  }
}
