// SPDX-License-Identifier: Apache-2.0
//
// Debian's Chromium with the live page: a server of the page's own, a profile of its own, and everything that the
// page writes to its console.
import { execFileSync, spawn } from 'node:child_process';
import { existsSync, mkdirSync, mkdtempSync, readFileSync, readdirSync, rmSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { root, work } from './support.js';

const require = createRequire(path.join(work, 'node_modules', 'of-the-tests.js'));
export const puppeteer = (await import(require.resolve('puppeteer-core'))).default;
export const axePath = require.resolve('axe-core/axe.min.js');

export const pictures = path.join(root, 'out/web/pictures');
mkdirSync(pictures, { recursive: true });

export const phone = { width: 390, height: 844, deviceScaleFactor: 2, isMobile: true, hasTouch: true };
export const phoneLying = { width: 844, height: 390, deviceScaleFactor: 2, isMobile: true, hasTouch: true };
export const desktop = { width: 1280, height: 800, deviceScaleFactor: 1 };

/** A sample as the camera that Chromium makes believe it has, again and again. */
export function cameraFile(name, size = null, rate = null) {
  const file = path.join(work, `${name}${size ? `-${size}` : ''}${rate ? `-${rate}` : ''}.mjpeg`);
  if (!existsSync(file)) {
    execFileSync('ffmpeg', [
      '-v', 'error', '-y', ...(rate ? ['-r', String(rate)] : []), '-i', path.join(root, 'samples', `${name}.mp4`),
      ...(size ? ['-vf', `scale=${size.replace('x', ':')}`] : []), '-c:v', 'mjpeg', '-q:v', '3', '-pix_fmt', 'yuvj420p',
      '-f', 'mjpeg', file,
    ]);
  }
  return file;
}

/** @returns {Promise<{ address: string, stop: () => void }>} */
export async function serve({ isolated = true, files = null } = {}) {
  const server = spawn(path.join(root, 'web/serve'), ['--local', '--port', '0'], {
    env: {
      ...process.env,
      ...(isolated ? {} : { TARN_WEB_NOT_ISOLATED: '1' }),
      ...(files ? { TARN_WEB_ROOT: files } : {}),
    },
    stdio: ['ignore', 'pipe', 'inherit'],
  });
  const text = await new Promise((resolve) => server.stdout.once('data', (data) => resolve(String(data))));
  return { address: text.match(/http:\S+/)[0], stop: () => server.kill() };
}

/**
 * @param {string | null} camera  a file; null: no camera
 * @param {string | null} hosts  names that are found elsewhere, as Chromium's rules say it
 */
export async function launch({ camera = null, refused = false, hosts = null } = {}) {
  const profile = mkdtempSync(path.join(tmpdir(), 'tarn-chromium-'));
  const browser = await puppeteer.launch({
    executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
    headless: true,
    userDataDir: profile,
    protocolTimeout: 300000,
    args: [
      '--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
      '--disable-component-update', '--disable-sync', '--disable-dev-shm-usage',
      '--disable-background-timer-throttling', '--disable-renderer-backgrounding',
      ...(camera
        ? ['--use-fake-device-for-media-stream', `--use-file-for-fake-video-capture=${camera}`]
        : []),
      ...(camera && !refused ? ['--use-fake-ui-for-media-stream'] : []),
      ...(refused ? ['--deny-permission-prompts'] : []),
      ...(hosts ? [`--host-resolver-rules=${hosts}`] : []),
    ],
  });
  return {
    browser,
    async close() {
      await browser.close();
      rmSync(profile, { recursive: true, force: true });
    },
  };
}

/** A page of the address, with what it wrote to its console in `page.lines`; scripts run there before its own. */
export async function open(browser, address, viewport = phone, scripts = []) {
  const page = await browser.newPage();
  page.lines = [];
  page.on('console', (message) => page.lines.push(`${message.type()}: ${message.text()}`));
  page.on('pageerror', (error) => page.lines.push(`error: ${error.message}`));
  await page.setViewport(viewport);
  for (const script of scripts) {
    await page.evaluateOnNewDocument(script);
  }
  await page.goto(address);
  return page;
}

export const state = (page, wanted) =>
  page.waitForFunction((name) => document.body.dataset.state === name, { timeout: 120000 }, wanted);

export const frames = (page, count) =>
  page.waitForFunction((least) => Number(document.body.dataset.frames) >= least, { timeout: 120000 }, count);

export const keyFrames = (page, count) =>
  page.waitForFunction((least) => Number(document.body.dataset.keyFrames) >= least, { timeout: 120000 }, count);

export const resultReady = (page) =>
  page.waitForFunction(() => document.getElementById('result').dataset.ready === 'true', { timeout: 180000 });

export const picture = (page, name) => page.screenshot({ path: path.join(pictures, `${name}.png`) });

/** The panorama that the save button gives, as the file that it makes. */
export async function savedBytes(page) {
  const directory = mkdtempSync(path.join(tmpdir(), 'tarn-saved-'));
  const session = await page.createCDPSession();
  await session.send('Browser.setDownloadBehavior', { behavior: 'allow', downloadPath: directory, eventsEnabled: true });
  const finished = new Promise((resolve) => {
    session.on('Browser.downloadProgress', ({ state: now }) => now === 'completed' && resolve());
  });
  await page.click('#save');
  await finished;
  const [name] = readdirSync(directory);
  const bytes = readFileSync(path.join(directory, name));
  rmSync(directory, { recursive: true });
  await session.detach();
  return bytes;
}

export function pictureSize(bytes) {
  const text = execFileSync('ffprobe', ['-v', 'error', '-show_entries', 'stream=width,height', '-of', 'csv=p=0', '-i', '-'],
    { input: bytes }).toString();
  const [width, height] = text.split(',').map(Number);
  return { width, height };
}
