// SPDX-License-Identifier: Apache-2.0
//
// The page in Firefox and in WebKit: both builds, each with a sweep from a video that is dropped onto the page. Left
// out where a browser is not installed.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import path from 'node:path';
import { after, before, describe, it } from 'node:test';
import { serve } from './browser.js';
import { engines } from './engines.js';
import { checkAllKinds, feedAllKinds } from './kinds.js';
import { root } from './support.js';

const video = readFileSync(path.join(root, 'samples/parking_pan.mp4')).toString('base64');

// Both in the page. Waits by looking: a page that is busy hears nothing.
const until = (condition, seconds) => `
  for (const begun = performance.now(); !(${condition});) {
    if (performance.now() - begun > ${seconds * 1000}) {
      throw new Error('waited too long: ' + document.body.dataset.state + ', ' + document.body.innerText.slice(0, 300));
    }
    await new Promise((resolve) => setTimeout(resolve, 50));
  }`;
const drop = `
  const bytes = Uint8Array.from(atob(args[0]), (letter) => letter.charCodeAt(0));
  const dataTransfer = new DataTransfer();
  dataTransfer.items.add(new File([bytes], 'sweep.mp4', { type: 'video/mp4' }));
  document.dispatchEvent(new DragEvent('drop', { bubbles: true, cancelable: true, dataTransfer }));`;

for (const [name, launch] of Object.entries(engines)) {
  describe(name, { timeout: 900000 }, () => {
    let browser;
    let server;
    before(async () => {
      server = await serve();
      browser = await launch();
      console.log(`# ${browser?.version ?? `${name} is not installed`}`);
    });
    after(async () => {
      await browser?.close();
      server?.stop();
    });

    const isThreaded = async () => await browser.run('return document.body.dataset.threads') === 'true';
    for (const threads of [true, false]) {
      it(`stitches a dropped video ${threads ? 'with' : 'without'} threads`, async (test) => {
        if (!browser) {
          test.skip('not installed');
          return;
        }
        // Firefox starts threads at most visits, not at all of them; the page goes on without then.
        for (let visits = 0; visits < 4 && (visits === 0 || await isThreaded() !== threads); ++visits) {
          await browser.visit(`${server.address}${threads ? '' : '?threads=no'}`);
          await browser.run(until("document.body?.dataset.loaded === 'yes' && document.body.dataset.state !== 'starting'", 120));
        }
        console.log(`# ${JSON.stringify(await browser.run(`return {
          isolated: crossOriginIsolated, secure: isSecureContext, camera: Boolean(navigator.mediaDevices?.getUserMedia),
          trouble: document.getElementById('trouble-title').textContent,
          frameCallback: 'requestVideoFrameCallback' in HTMLVideoElement.prototype, videoFrame: typeof VideoFrame,
          offscreen: typeof OffscreenCanvas, threads: document.body.dataset.threads };`))}`);
        await browser.picture(`${name}-opened`);
        assert.equal(await isThreaded(), threads);
        const begun = performance.now();
        await browser.run(drop, video);
        await browser.run(until("Number(document.body.dataset.keyFrames) >= 3 || document.body.dataset.state === 'result'", 120));
        await browser.picture(`${name}-sweeping`);
        await browser.run(until("document.getElementById('result').dataset.ready === 'true' && document.getElementById('picture').naturalWidth > 0", 240));
        await browser.run('for (const _ of [1, 2, 3]) await new Promise(requestAnimationFrame);'); // until it is on the screen
        await browser.picture(`${name}-result`);
        const found = await browser.run(`
          document.getElementById('crop').click();
          ${until("document.getElementById('crop').getAttribute('aria-pressed') === 'false' && document.getElementById('picture').complete", 60)}
          const { naturalWidth: width, naturalHeight: height } = document.getElementById('picture');
          return { width, height, title: document.getElementById('result-title').textContent,
            text: document.getElementById('result-text').textContent, frames: document.body.dataset.frames };`);
        console.log(`# ${Math.round(performance.now() - begun)} ms: ${JSON.stringify(found)}`);
        assert.equal(found.title, 'Panorama');
        assert.ok(found.width > 800 && found.height > 300, JSON.stringify(found));
        assert.ok(Number(found.frames) >= 140, found.frames);
        await browser.run("document.getElementById('again').click();");
        checkAllKinds(await browser.run(`return (${feedAllKinds})();`));
      });
    }
  });
}
