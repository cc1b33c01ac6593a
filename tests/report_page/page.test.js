// SPDX-License-Identifier: Apache-2.0
//
// The page of a report in Debian's Chromium, from disk: with and without scripts, at the widths of a phone and of a
// desktop, light and dark, on paper, by keyboard. Pictures of each go to out/report.
import assert from 'node:assert/strict';
import { mkdtempSync, rmSync, statSync } from 'node:fs';
import { createRequire } from 'node:module';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, describe, it } from 'node:test';
import { fileURLToPath, pathToFileURL } from 'node:url';

const root = path.join(path.dirname(fileURLToPath(import.meta.url)), '../..');
const require = createRequire(path.join(root, 'build/report/node_modules', 'of-the-tests.js'));
const puppeteer = (await import(require.resolve('puppeteer-core'))).default;
const axePath = require.resolve('axe-core/axe.min.js');
const pages = path.join(root, 'out/report');

const widths = {
  phone: { width: 390, height: 844, deviceScaleFactor: 2, isMobile: true, hasTouch: true },
  desktop: { width: 1280, height: 800, deviceScaleFactor: 1 },
};

let browser;
const profile = mkdtempSync(path.join(tmpdir(), 'tarn-chromium-'));
before(async () => {
  browser = await puppeteer.launch({
    executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
    headless: true,
    userDataDir: profile,
    args: ['--no-sandbox', '--disable-gpu', '--no-first-run', '--disable-background-networking', '--disable-sync',
      '--disable-component-update', '--disable-dev-shm-usage'],
  });
});
after(async () => {
  await browser?.close();
  rmSync(profile, { recursive: true, force: true });
});

/** The page with what it asked for beyond itself and wrote to its console, which should be nothing. */
async function open(name, { width = 'desktop', scheme = 'light', scripts = true, bypass = false } = {}) {
  const page = await browser.newPage();
  page.lines = [];
  page.requests = [];
  page.on('console', (message) => page.lines.push(`${message.type()}: ${message.text()}`));
  page.on('pageerror', (error) => page.lines.push(`error: ${error.message}`));
  page.on('request', (request) => page.requests.push(request.url()));
  await page.setViewport(widths[width]);
  await page.emulateMediaFeatures([{ name: 'prefers-color-scheme', value: scheme }]);
  await page.setJavaScriptEnabled(scripts);
  await page.setBypassCSP(bypass);
  await page.goto(pathToFileURL(path.join(pages, `${name}.html`)).href);
  return page;
}

for (const name of ['good', 'failed']) {
  describe(`the report of a sweep: ${name}`, () => {
    for (const width of Object.keys(widths)) {
      for (const scheme of ['light', 'dark']) {
        for (const scripts of [true, false]) {
          const which = `${width}, ${scheme}, ${scripts ? 'with' : 'without'} scripts`;
          it(`fits and asks for nothing: ${which}`, async () => {
            const page = await open(name, { width, scheme, scripts });
            await page.screenshot({
              path: path.join(pages, `${name}-${width}-${scheme}${scripts ? '' : '-without-scripts'}.png`), fullPage: true,
            });
            assert.deepEqual(page.lines, []);
            assert.deepEqual(page.requests.filter((url) => !url.startsWith('data:')).slice(1), []);
            // The protocol evaluates where the page itself must not.
            const seen = await page.evaluate(() => ({
              width: document.documentElement.scrollWidth,
              text: document.body.innerText,
              broken: [...document.images].filter((image) => image.naturalWidth === 0).length,
              images: document.images.length,
            }));
            assert.equal(seen.width, widths[width].width);
            assert.equal(seen.broken, 0);
            assert.ok(seen.images > 4);
            for (const heading of ['The numbers', 'The strip', 'Along time', 'The key frames', 'What made it']) {
              assert.ok(seen.text.includes(heading), heading);
            }
            assert.equal(seen.text.includes('Where it broke'), name === 'failed');
            await page.close();
          });
        }
        it(`has no accessibility finding: ${width}, ${scheme}`, async () => {
          const page = await open(name, { width, scheme, bypass: true });
          await page.addScriptTag({ path: axePath });
          const findings = await page.evaluate(async () => {
            const { violations } = await window.axe.run();
            return violations.map(({ id, nodes }) => `${id}: ${nodes.map(({ html }) => html).join(' ')}`);
          });
          assert.deepEqual(findings, []);
          await page.close();
        });
      }
    }

    it('refuses scripts that are not its own', async () => {
      const page = await open(name);
      const ran = await page.evaluate(() => {
        const script = document.createElement('script');
        script.textContent = 'window.ran = true;';
        document.body.append(script);
        return window.ran === true;
      });
      assert.equal(ran, false);
      await page.close();
    });

    it('has the numbers of its curves', async () => {
      const page = await open(name);
      const { curves, run } = await page.evaluate(() => ({
        curves: JSON.parse(document.getElementById('curves').textContent),
        run: JSON.parse(document.getElementById('run').textContent),
      }));
      assert.equal(curves.length, 6);
      const [motion] = curves;
      assert.ok(motion.frame.length > 2 && motion.frame.length <= run.frames.taken);
      assert.equal(motion.at.length, motion.value.length);
      const paths = await page.$$eval('[data-plot] .curve', (all) => all.map((one) => one.getAttribute('d').match(/[ML]/g).length));
      assert.deepEqual(paths, curves.map(({ at }) => at.length));
      await page.close();
    });

    it('shows the numbers of a frame under the pointer', async () => {
      const page = await open(name);
      const plot = await page.$('[data-plot="motion"] svg');
      await plot.scrollIntoView();
      const box = await plot.boundingBox();
      await page.mouse.move(box.x + box.width * 0.1, box.y + box.height / 2);
      const shown = await page.$eval('#readout', (element) => (element.hidden ? '' : element.textContent));
      assert.match(shown, /^Frame \d+: Motion [\d.]+ px, Overlap [\d.]+, Inliers \d+, Tilt [\d.]+°, Scale [\d.]+, Time [\d.]+ ms$/);
      await page.mouse.move(2, 2);
      assert.equal(await page.$eval('#readout', (element) => element.hidden), true);
      await page.close();
    });

    it('shows a key frame at its outline, and at its number by keyboard', async () => {
      const page = await open(name);
      await page.hover('.placed[data-key-frame="2"] circle');
      assert.ok(await page.evaluate(() => document.querySelector('#peek').src === document.querySelector('#key-frame-2 img').src));
      await page.mouse.move(2, 2);
      assert.equal(await page.$('#peek'), null);
      for (let presses = 0; presses < 20; ++presses) {
        await page.keyboard.press('Tab');
        if (await page.evaluate(() => document.activeElement.getAttribute('href') === '#key-frame-2')) {
          break;
        }
      }
      assert.notEqual(await page.$('#peek'), null);
      await page.keyboard.press('Enter');
      assert.equal(await page.evaluate(() => document.querySelector(':target').id), 'key-frame-2');
      await page.close();
    });

    it('prints', async () => {
      const page = await open(name, { scheme: 'dark' });
      const file = path.join(pages, `${name}.pdf`);
      await page.pdf({ path: file, format: 'A4', margin: { top: '1cm', bottom: '1cm', left: '1cm', right: '1cm' } });
      assert.ok(statSync(file).size > 20000);
      await page.close();
    });
  });
}
