// SPDX-License-Identifier: Apache-2.0
//
// The live page in Debian's Chromium, with a sample as its camera.
import assert from 'node:assert/strict';
import { cpSync, mkdtempSync, readFileSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, describe, it } from 'node:test';
import {
  axePath, cameraFile, desktop, frames, keyFrames, launch, open, phone, phoneLying, picture, pictureSize, resultReady,
  savedBytes, serve, state,
} from './browser.js';
import { checkAllKinds, feedAllKinds } from './kinds.js';
import { root } from './support.js';

async function findings(page) {
  await page.addScriptTag({ path: axePath });
  return page.evaluate(async () => {
    const { violations } = await window.axe.run();
    return violations.map(({ id, nodes }) => `${id}: ${nodes.map(({ html }) => html).join(' ')}`);
  });
}

async function sweepOnce(page, least = 3) {
  await state(page, 'ready');
  await page.click('#shutter');
  await keyFrames(page, least);
  await page.click('#shutter');
  await resultReady(page);
}

describe('with a camera', () => {
  let server;
  let chromium;
  before(async () => {
    server = await serve();
    chromium = await launch({ camera: cameraFile('hall_slide') });
  });
  after(async () => {
    await chromium?.close();
    server?.stop();
  });

  it('sweeps, finishes and saves a picture of the scene’s size', async () => {
    const page = await open(chromium.browser, server.address);
    await state(page, 'ready');
    await picture(page, 'phone-ready');
    await page.click('#shutter');
    await frames(page, 30);
    await picture(page, 'phone-sweeping');
    await keyFrames(page, 4);
    await picture(page, 'phone-later');
    await page.click('#shutter');
    await picture(page, 'phone-saving');
    await resultReady(page);
    await picture(page, 'phone-result');
    const cropped = pictureSize(await savedBytes(page));
    const says = ({ width, height }) => page.$eval('#result-text', ({ textContent }) => textContent)
      .then((text) => assert.ok(text.startsWith(`${width} × ${height}, from `), text));
    await says(cropped);
    await page.click('#crop');
    const whole = pictureSize(await savedBytes(page));
    await says(whole);
    assert.ok(whole.width > 960 * 1.2 && whole.height > 430, `${whole.width}x${whole.height}`);
    assert.ok(cropped.width <= whole.width && cropped.height < whole.height && cropped.width > 900);
    assert.equal(await page.evaluate(() => document.body.dataset.threads), 'true');
    assert.deepEqual(page.lines, []);
    await page.click('#again');
    await state(page, 'ready');
    await page.close();
  });

  it('has no accessibility finding in any state', async () => {
    const page = await open(chromium.browser, server.address);
    await page.setBypassCSP(true);
    await page.reload();
    await state(page, 'ready');
    assert.deepEqual(await findings(page), []);
    await page.click('#shutter');
    await frames(page, 20);
    assert.deepEqual(await findings(page), []);
    await page.click('#shutter');
    await resultReady(page);
    assert.deepEqual(await findings(page), []);
    await page.close();
  });

  it('has targets of 44 px at least', async () => {
    const page = await open(chromium.browser, server.address);
    await sweepOnce(page, 1);
    const small = await page.evaluate(() => [...document.querySelectorAll('button, a, label[role=button]')]
      .map((element) => [element.id, element.getBoundingClientRect()])
      .filter(([, { width, height }]) => width > 0 && (width < 44 || height < 44))
      .map(([id]) => id));
    assert.deepEqual(small, []);
    await page.close();
  });

  it('is held well lying and on a desktop', async () => {
    for (const [name, viewport] of [['phone-lying', phoneLying], ['desktop', desktop]]) {
      const page = await open(chromium.browser, server.address, viewport);
      await state(page, 'ready');
      await page.click('#shutter');
      await keyFrames(page, 3);
      await picture(page, `${name}-sweeping`);
      await page.click('#shutter');
      await resultReady(page);
      await picture(page, `${name}-result`);
      const outside = await page.evaluate(() => [...document.querySelectorAll('#camera button, #result button, #save')]
        .map((element) => [element.id, element.getBoundingClientRect()])
        .filter(([, box]) => box.right > innerWidth || box.bottom > innerHeight || box.left < 0 || box.top < 0)
        .map(([id]) => id));
      assert.deepEqual(outside, []);
      await page.close();
    }
  });

  it('answers the first frame within 300 ms of the tap', async () => {
    const page = await open(chromium.browser, server.address);
    await state(page, 'ready');
    await page.waitForFunction(() => document.body.dataset.loaded === 'yes');
    const milliseconds = await page.evaluate(() => new Promise((resolve) => {
      const begun = performance.now();
      new MutationObserver(() => resolve(performance.now() - begun))
        .observe(document.body, { attributes: true, attributeFilter: ['data-frames'] });
      document.getElementById('shutter').click();
    }));
    console.log(`# first frame answered ${milliseconds.toFixed(0)} ms after the tap`);
    await page.close();
  });

  it('goes on after the page was hidden', async () => {
    const page = await open(chromium.browser, server.address);
    await state(page, 'ready');
    await page.click('#shutter');
    await keyFrames(page, 2);
    const hide = (hidden) => page.evaluate((value) => {
      Object.defineProperty(document, 'hidden', { configurable: true, get: () => value });
      document.dispatchEvent(new Event('visibilitychange'));
    }, hidden);
    await hide(true);
    await state(page, 'paused');
    await picture(page, 'phone-paused');
    await hide(false);
    await state(page, 'sweeping');
    await picture(page, 'phone-ghost');
    await page.click('#shutter');
    await resultReady(page);
    assert.equal(await page.$eval('#result-title', (title) => title.textContent), 'Panorama');
    assert.deepEqual(page.lines, []);
    await page.close();
  });

  it('gives the small picture back after a reload in mid-sweep', async () => {
    const page = await open(chromium.browser, server.address);
    await state(page, 'ready');
    await page.click('#shutter');
    await keyFrames(page, 2);
    await page.reload();
    await resultReady(page);
    assert.match(await page.$eval('#result-text', (text) => text.textContent), /closed in mid-sweep/);
    const { width } = pictureSize(await savedBytes(page));
    assert.ok(width > 200, `${width}`);
    await page.click('#again');
    await sweepOnce(page, 1);
    assert.deepEqual(page.lines, []);
    await page.close();
  });

  it('gives the panorama back after a reload, until the next sweep', async () => {
    const page = await open(chromium.browser, server.address);
    await sweepOnce(page, 2);
    const before = await savedBytes(page);
    await page.waitForFunction(() => sessionStorage.getItem('tarnstitch-kept-name'));
    await page.reload();
    await resultReady(page);
    assert.match(await page.$eval('#result-text', (text) => text.textContent), /panorama was kept/);
    assert.ok(before.equals(await savedBytes(page)));
    await page.click('#crop');
    assert.equal(await page.$eval('#crop', (button) => button.getAttribute('aria-pressed')), 'false');
    await page.click('#again');
    await state(page, 'ready');
    await page.reload();
    await state(page, 'ready');
    assert.deepEqual(page.lines, []);
    await page.close();
  });

  it('turns the direction by a tap, against the one that is known as well', async () => {
    const page = await open(chromium.browser, server.address);
    await state(page, 'ready');
    const way = () => page.$eval('#direction', ({ dataset }) => dataset.way);
    assert.equal(await way(), 'any');
    const seen = [];
    for (let taps = 0; taps < 5; ++taps) {
      await page.click('#direction');
      seen.push(await way());
    }
    assert.deepEqual(seen, ['right', 'left', 'down', 'up', 'any']);
    await page.click('#shutter');
    await page.waitForFunction(() => document.getElementById('direction').dataset.way !== 'any', { timeout: 60000 });
    const known = await way();
    await page.click('#direction');
    assert.notEqual(await way(), known);
    await page.click('#shutter');
    await resultReady(page);
    assert.deepEqual(page.lines, []);
    await page.close();
  });

  it('lets the picture be moved, zoomed and shared', async () => {
    const page = await open(chromium.browser, server.address, phone, [() => {
      navigator.canShare = ({ files }) => files[0].type === 'image/jpeg';
      navigator.share = async ({ files: [file] }) => (window.shared = { name: file.name, size: file.size });
    }]);
    await sweepOnce(page, 3);
    const place = async () => {
      const [x, y, scale] = (await page.$eval('#picture', ({ style }) => style.transform)).match(/-?[\d.]+(?:e-?\d+)?/g).map(Number);
      return { x, y, scale };
    };
    const fitted = await place();
    const box = await (await page.$('#viewer')).boundingBox();
    const [x, y] = [box.x + box.width / 2, box.y + box.height / 2];
    await page.mouse.move(x, y);
    await page.mouse.wheel({ deltaY: -600 });
    await page.waitForFunction((before) => document.getElementById('picture').style.transform !== before, {},
      `translate(${fitted.x}px, ${fitted.y}px) scale(${fitted.scale})`);
    const zoomed = await place();
    assert.ok(zoomed.scale > 2 * fitted.scale, JSON.stringify({ fitted, zoomed }));
    await page.mouse.down();
    await page.mouse.move(x + 50, y);
    await page.mouse.up();
    assert.ok(Math.abs((await place()).x - zoomed.x - 50) < 1);
    await page.mouse.move(x, y);
    await page.focus('#viewer');
    await page.keyboard.press('ArrowRight');
    assert.ok(Math.abs((await place()).x - zoomed.x + 10) < 1);
    await page.keyboard.press('+');
    assert.ok((await place()).scale > zoomed.scale);
    for (let steps = 0; steps < 40; ++steps) {
      await page.keyboard.press('ArrowRight');
    }
    const { naturalWidth } = await page.$eval('#picture', ({ naturalWidth: width }) => ({ naturalWidth: width }));
    const end = await place();
    assert.ok(Math.abs(end.x + naturalWidth * end.scale - box.width) < 1, 'it does not leave its frame');
    await page.keyboard.press('0');
    assert.deepEqual(await place(), fitted);
    await page.click('#share');
    const shared = await page.waitForFunction(() => window.shared);
    const { name, size } = await shared.jsonValue();
    assert.match(name, /^panorama-.*\.jpg$/);
    assert.equal(size, (await savedBytes(page)).length);
    assert.deepEqual(page.lines, []);
    await page.close();
  });

  it('takes every kind of frame, and leaves it to its owner', async () => {
    const page = await open(chromium.browser, server.address);
    await state(page, 'ready');
    checkAllKinds(await page.evaluate(feedAllKinds));
    assert.deepEqual(page.lines, []);
    await page.close();
  });

  it('can be installed, and works without a network after the first visit', async () => {
    const page = await open(chromium.browser, server.address);
    await page.evaluate(() => navigator.serviceWorker.ready.then(() => undefined));
    await page.reload();
    await state(page, 'ready');
    const session = await page.createCDPSession();
    assert.deepEqual((await session.send('Page.getInstallabilityErrors')).installabilityErrors, []);
    assert.deepEqual((await session.send('Page.getAppManifest')).errors, []);
    await session.detach();
    await page.setOfflineMode(true);
    await page.reload();
    await sweepOnce(page, 1);
    assert.deepEqual(page.lines, []);
    await page.close();
  });
});

describe('a newer version of the page', () => {
  it('arrives by itself, whole, and not before a visit begins', async () => {
    const copy = mkdtempSync(path.join(tmpdir(), 'tarn-version-'));
    cpSync(path.join(root, 'out/web/live'), copy, { recursive: true });
    const change = (name, from, to) => {
      const file = path.join(copy, name);
      const text = readFileSync(file, 'utf8');
      assert.match(text, from);
      writeFileSync(file, text.replace(from, to));
    };
    const server = await serve({ files: copy });
    const chromium = await launch({ camera: cameraFile('parking_pan') });
    try {
      const page = await open(chromium.browser, server.address);
      const title = () => page.evaluate(() => document.title);
      await page.evaluate(() => navigator.serviceWorker.ready.then(() => undefined));
      await page.reload();
      await state(page, 'ready');
      assert.equal(await title(), 'TarnStitch live');

      change('index.html', /<title>.*<\/title>/, '<title>Newer</title>');
      change('sw.js', /const version = '[^']*'/, "const version = 'newer'");
      await page.reload(); // from what is kept, while the newer one is fetched
      await state(page, 'ready');
      assert.equal(await title(), 'TarnStitch live');
      await page.waitForFunction(async () => Boolean((await navigator.serviceWorker.getRegistration())?.waiting), { timeout: 60000 });
      await sweepOnce(page, 1);
      assert.equal(await title(), 'TarnStitch live');
      await page.click('#again');
      await page.reload();
      await page.waitForFunction(() => document.title === 'Newer', { timeout: 60000 });
      await state(page, 'ready');
      const kept = await page.evaluate(async () => (await caches.keys()).filter((name) => name.startsWith('tarnstitch-live-')));
      assert.deepEqual(kept, ['tarnstitch-live-newer']);
      assert.deepEqual(page.lines, []);
    } finally {
      await chromium.close();
      server.stop();
      rmSync(copy, { recursive: true });
    }
  });
});

describe('without isolation', () => {
  it('sweeps without threads', async () => {
    const server = await serve({ isolated: false });
    const chromium = await launch({ camera: cameraFile('parking_pan') });
    try {
      const page = await open(chromium.browser, server.address);
      await sweepOnce(page, 2);
      assert.equal(await page.evaluate(() => document.body.dataset.threads), 'false');
      assert.equal(await page.$eval('#result-title', (title) => title.textContent), 'Panorama');
      assert.deepEqual(page.lines, []);
    } finally {
      await chromium.close();
      server.stop();
    }
  });
});

describe('without a camera', () => {
  let server;
  before(async () => {
    server = await serve();
  });
  after(() => server.stop());

  it('says that there is none, and stitches a video', async () => {
    const chromium = await launch();
    try {
      const page = await open(chromium.browser, server.address);
      await page.setBypassCSP(true);
      await page.reload();
      await state(page, 'trouble');
      assert.match(await page.$eval('#trouble-title', (title) => title.textContent), /No camera found/);
      await picture(page, 'phone-no-camera');
      assert.deepEqual(await findings(page), []);
      const input = await page.$('#file-input');
      await input.uploadFile(path.join(root, 'samples/parking_pan.mp4'));
      await resultReady(page);
      const { width, height } = pictureSize(await savedBytes(page));
      assert.ok(width > 430 && height > 280, `${width}x${height}`);
      await picture(page, 'phone-video-result');
      assert.deepEqual(page.lines, []);
    } finally {
      await chromium.close();
    }
  });

  it('says that it was refused, and tries again', async () => {
    const chromium = await launch({ camera: cameraFile('parking_pan'), refused: true });
    try {
      const page = await open(chromium.browser, server.address, phone);
      await state(page, 'trouble');
      assert.match(await page.$eval('#trouble-title', (title) => title.textContent), /refused/);
      await picture(page, 'phone-refused');
      await page.click('#trouble-again');
      await state(page, 'trouble');
      assert.deepEqual(page.lines, []);
    } finally {
      await chromium.close();
    }
  });
});
