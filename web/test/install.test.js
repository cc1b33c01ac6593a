// SPDX-License-Identifier: Apache-2.0
//
// What a user gets: the packed package in an empty project, as plain modules, in TypeScript, through a bundler.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { cpSync, mkdirSync, mkdtempSync, readFileSync, readdirSync, rmSync, symlinkSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, describe, it } from 'node:test';
import { launch, open, serve } from './browser.js';
import { packageDirectory, rawFrames, samples, work } from './support.js';

const project = mkdtempSync(path.join(tmpdir(), 'tarn-install-'));
const run = (command, args, options = {}) =>
  execFileSync(command, args, { cwd: project, stdio: ['ignore', 'pipe', 'pipe'], encoding: 'utf8', ...options });

const stitch = `
import { closeSync, openSync, readSync } from 'node:fs';
import { Sweep } from 'tarnstitch';
const [file, width, height, count] = process.argv.slice(2);
const sweep = await Sweep.begin();
const data = new Uint8Array(width * height * 4);
const descriptor = openSync(file, 'r');
for (let index = 0; index < count; ++index) {
  readSync(descriptor, data, 0, data.length, index * data.length);
  await sweep.feed({ data, width: Number(width), height: Number(height) }, { everyFrame: true });
}
closeSync(descriptor);
const panorama = await sweep.finish();
console.log(JSON.stringify({ extent: panorama.extent, width: panorama.width, bytes: panorama.blob.size, threads: sweep.threads }));
`;

describe('an empty project', () => {
  before(() => {
    const packed = run('npm', ['pack', '--silent', '--pack-destination', project], { cwd: packageDirectory }).trim();
    writeFileSync(path.join(project, 'package.json'), '{ "type": "module", "private": true }\n');
    run('npm', ['install', '--no-package-lock', '--no-audit', '--no-fund', '--offline', `./${packed}`]);
  });
  after(() => rmSync(project, { recursive: true, force: true }));

  it('stitches with plain modules, and ends by itself', () => {
    writeFileSync(path.join(project, 'stitch.js'), stitch);
    const { width, height } = samples.parking_pan;
    const result = JSON.parse(run('node', ['stitch.js', rawFrames('parking_pan', false), width, height, 60].map(String),
      { timeout: 300000 }));
    assert.equal(result.extent, 'whole');
    assert.ok(result.width >= 426 && result.bytes > 10000, JSON.stringify(result));
    assert.equal(result.threads, true);
  });

  it('has types that hold under strict TypeScript', () => {
    writeFileSync(path.join(project, 'use.ts'), `
import { Sweep, SweepError, configure, memoryInUse, preload, shutDown } from 'tarnstitch';
import type {
  Answer, Code, Configuration, Direction, FeedOptions, FinishOptions, Four, Frame, Panorama, Point, Preview, Problem,
  RawPixels, Rectangle, Status, SweepOptions,
} from 'tarnstitch';
const configuration: Configuration = {
  locate: (file) => new URL('/files/' + file, location.href),
  threads: 'auto',
  worker: () => new Worker('/files/worker.js', { type: 'module' }),
};
configure(configuration);
const options: SweepOptions = { direction: 'left', upright: false, mostUnderWay: 2, signal: AbortSignal.timeout(1000) };
const finishing: FinishOptions = { signal: AbortSignal.timeout(1000), wait: false };
const pixels: RawPixels = { data: new ArrayBuffer(12), width: 1, height: 3, stride: 4, format: 'rgba' };
export async function useAll(bitmap: ImageBitmap, videoFrame: VideoFrame, picture: ImageData): Promise<void> {
  const sweep = await Sweep.begin(options);
  const feeding: FeedOptions = { direction: 'up', everyFrame: true, signal: AbortSignal.timeout(10) };
  for (const frame of [bitmap, videoFrame, picture, pixels]) await sweep.feed(frame, feeding);
  const status: Status = await sweep.status();
  const { code, direction, angles, overlap }: Answer = (await sweep.feed(picture))!;
  const codes: Code[] = [code, 'lost'];
  const directions: Direction[] = [direction, sweep.direction];
  const four: Four<number> = angles;
  const outline: Four<Point> | null | undefined = sweep.preview?.outline;
  const { crop, why }: Panorama = await sweep.finish(finishing);
  const area: Rectangle | null = crop;
  console.log(status.underWay, overlap, codes, directions, four, outline?.[0].x, area?.width, why, sweep.threads,
    sweep.version, sweep.isOver, sweep.fedFrames, sweep.droppedFrames);
  sweep.end();
  const problem: Problem = new SweepError('over', 'over').problem;
  const { threads }: { threads: boolean } = await preload({ signal: AbortSignal.timeout(1) });
  console.log(problem, threads);
}
// @ts-expect-error: begun by Sweep.begin alone
new Sweep();
const video: HTMLVideoElement = document.createElement('video');
export async function use(frame: Frame): Promise<Blob | null> {
  await preload();
  const sweep = await Sweep.begin({ direction: 'right', signal: AbortSignal.timeout(1000) });
  const answer: Answer | null = await sweep.feed(video);
  await sweep.feed(frame, { everyFrame: true });
  await sweep.feed({ data: new Uint8Array(4), width: 1, height: 1, format: 'bgra' });
  const preview: Preview | null = sweep.preview;
  if (preview) new ImageData(preview.data, preview.width, preview.height);
  if (answer?.code === 'too-fast') sweep.direction = 'any';
  try {
    const panorama: Panorama = await sweep.finish({ onProgress: ({ done, keyFrames }) => done / keyFrames });
    return panorama.croppedBlob ?? panorama.blob;
  } catch (error) {
    if (error instanceof SweepError && error.problem === 'no-memory') shutDown();
    return (await memoryInUse()) > 0 ? null : null;
  }
}
// @ts-expect-error: no direction
void Sweep.begin({ direction: 'sideways' });
`);
    for (const resolution of [['--module', 'nodenext'], ['--module', 'esnext', '--moduleResolution', 'bundler']]) {
      run('node', [path.join(work, 'node_modules/typescript/bin/tsc'), '--strict', '--noEmit', '--target', 'es2022',
        '--lib', 'es2022,dom,dom.iterable', ...resolution, 'use.ts']);
    }
  });

  it('goes through a bundler, and stitches in a browser', { timeout: 300000 }, async () => {
    const { width, height } = samples.parking_pan;
    writeFileSync(path.join(project, 'entry.js'), `
import { Sweep, configure } from 'tarnstitch';
configure({ locate: (file) => './' + file, worker: () => new Worker('./worker.js', { type: 'module' }) });
export async function stitch() {
  const frames = await (await fetch('./frames')).arrayBuffer();
  const sweep = await Sweep.begin();
  const size = ${width} * ${height} * 4;
  for (let at = 0; at < 60 * size; at += size) {
    const data = new Uint8ClampedArray(frames, at, size);
    await sweep.feed(new ImageData(data, ${width}, ${height}), { everyFrame: true });
  }
  const { extent, width, blob } = await sweep.finish();
  sweep.end();
  return { extent, width, bytes: blob.size, threads: sweep.threads };
}
`);
    const out = path.join(project, 'site');
    mkdirSync(out);
    const bundle = (entry, name) => run(path.join(work, 'node_modules/.bin/esbuild'), [entry, '--bundle', '--minify',
      '--format=esm', '--platform=browser', '--external:node:*', '--external:./node.js', `--outfile=${path.join(out, name)}`]);
    const installed = path.join(project, 'node_modules/tarnstitch');
    bundle('entry.js', 'entry.js');
    bundle(path.join(installed, 'worker.js'), 'worker.js');
    for (const name of readdirSync(installed).filter((file) => file.startsWith('tarnstitch-'))) {
      cpSync(path.join(installed, name), path.join(out, name));
    }
    symlinkSync(rawFrames('parking_pan', false), path.join(out, 'frames'));
    writeFileSync(path.join(out, 'index.html'), '<!doctype html><link rel="icon" href="data:,"><title>bundle</title>');
    const server = await serve({ files: out });
    const chromium = await launch();
    try {
      const page = await open(chromium.browser, server.address);
      const result = await page.evaluate(async () => (await import('./entry.js')).stitch());
      assert.equal(result.extent, 'whole');
      assert.ok(result.width >= 426 && result.bytes > 10000, JSON.stringify(result));
      assert.equal(result.threads, true);
    } finally {
      await chromium.close();
      server.stop();
    }
  });

  it('holds the files that it names, the notices, and nothing else', () => {
    const installed = path.join(project, 'node_modules/tarnstitch');
    const { exports } = JSON.parse(readFileSync(path.join(installed, 'package.json'), 'utf8'));
    const names = new Set(readdirSync(installed));
    for (const target of Object.values(exports).flatMap((entry) => (typeof entry === 'string' ? [entry] : Object.values(entry)))) {
      assert.ok(names.has(target.slice(2)), target);
    }
    const scripts = ['index', 'engine', 'module', 'node', 'node-thread', 'pixels', 'words', 'worker'].map((name) => `${name}.js`);
    const builds = ['threads.js', 'threads.worker.js', 'threads.wasm', 'single.js', 'single.wasm'].map((name) => `tarnstitch-${name}`);
    assert.deepEqual([...names].sort(), [
      ...scripts, ...builds, 'index.d.ts', 'package.json', 'LICENSE', 'README.md', 'THIRD-PARTY-NOTICES.txt'].sort());
    const notices = readFileSync(path.join(installed, 'THIRD-PARTY-NOTICES.txt'), 'utf8');
    for (const text of [/^=+ opencv$/m, /^=+ eigen$/m, /Mozilla Public License Version 2.0/, /eigen3=3/, /^=+ libjpeg-turbo$/m,
      /^=+ zlib$/m, /^=+ emscripten, musl, libc\+\+$/m, /Apache-2.0 with LLVM exception/]) {
      assert.match(notices, text);
    }
    for (const name of [...names].filter((file) => file.endsWith('.js'))) {
      assert.doesNotMatch(readFileSync(path.join(installed, name), 'utf8'), /\beval\(|new Function\(/, name);
    }
  });
});
