// SPDX-License-Identifier: Apache-2.0
//
// The documents' figures of the live page: a picture, and an animation of the strip growing under a moving camera.
import { execFileSync } from 'node:child_process';
import { mkdirSync, rmSync } from 'node:fs';
import path from 'node:path';
import { launch, open, serve, state } from './browser.js';
import { root, work } from './support.js';

const shots = path.join(work, 'shots');
rmSync(shots, { recursive: true, force: true });
mkdirSync(shots);
let last = 0;
const server = await serve();
// Long enough at its beginning for the page to be there, and at half its speed.
const camera = path.join(work, 'figures.mjpeg');
execFileSync('ffmpeg', ['-v', 'error', '-y', '-i', path.join(root, 'samples/hall_slide.mp4'), '-vf',
  'setpts=2*PTS,fps=30,tpad=start_mode=clone:start_duration=4', '-c:v', 'mjpeg', '-q:v', '3', '-pix_fmt', 'yuvj420p', '-f',
  'mjpeg', camera]);
const chromium = await launch({ camera });
try {
  const page = await open(chromium.browser, server.address, { width: 360, height: 640, deviceScaleFactor: 1 });
  await state(page, 'ready');
  await page.click('#shutter');
  const begun = performance.now();
  for (let index = 0; performance.now() - begun < 15000; ++index) {
    last = index;
    await new Promise((resolve) => setTimeout(resolve, begun + index * 400 - performance.now()));
    await page.screenshot({ path: path.join(shots, `${String(index).padStart(3, '0')}.png`) });
  }
  await page.click('#shutter');
} finally {
  await chromium.close();
  server.stop();
}
const images = path.join(root, 'docs/images');
execFileSync('ffmpeg', ['-v', 'error', '-y', '-framerate', '6', '-i', path.join(shots, '%03d.png'), '-vf',
  'scale=216:-2,split[a][b];[a]palettegen=max_colors=64[p];[b][p]paletteuse=dither=bayer:bayer_scale=4',
  path.join(images, 'live.gif')]);
execFileSync('ffmpeg', ['-v', 'error', '-y', '-i', path.join(shots, `${String(last - 4).padStart(3, '0')}.png`), '-q:v', '4',
  path.join(images, 'live.jpg')]);
