// SPDX-License-Identifier: Apache-2.0
//
// What a user gets: the packed package in an empty project, as plain modules, in TypeScript, through a bundler.
import assert from 'node:assert/strict';
import { execFileSync } from 'node:child_process';
import { mkdirSync, mkdtempSync, readFileSync, readdirSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, describe, it } from 'node:test';
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
import type { Answer, Frame, Panorama, Preview } from 'tarnstitch';
configure({ locate: (file) => '/files/' + file, threads: 'auto' });
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

  it('goes through a bundler', () => {
    writeFileSync(path.join(project, 'entry.js'), `
import { Sweep, configure } from 'tarnstitch';
configure({ locate: (file) => './' + file, worker: () => new Worker('./worker.js', { type: 'module' }) });
globalThis.Sweep = Sweep;
`);
    const out = path.join(project, 'site');
    mkdirSync(out);
    run(path.join(work, 'node_modules/.bin/esbuild'), ['entry.js', '--bundle', '--format=esm',
      '--platform=browser', '--external:node:*', `--outdir=${out}`]);
    assert.match(readFileSync(path.join(out, 'entry.js'), 'utf8'), /Sweep = class|class Sweep/);
  });

  it('holds the files that it names, the notices, and nothing else', () => {
    const installed = path.join(project, 'node_modules/tarnstitch');
    const { exports } = JSON.parse(readFileSync(path.join(installed, 'package.json'), 'utf8'));
    const names = new Set(readdirSync(installed));
    for (const target of Object.values(exports).flatMap((entry) => (typeof entry === 'string' ? [entry] : Object.values(entry)))) {
      assert.ok(names.has(target.slice(2)), target);
    }
    assert.ok(names.has('LICENSE') && names.has('THIRD-PARTY-NOTICES.txt') && names.has('README.md'));
    for (const name of [...names].filter((file) => file.endsWith('.js'))) {
      assert.doesNotMatch(readFileSync(path.join(installed, name), 'utf8'), /\beval\(|new Function\(/, name);
    }
  });
});
