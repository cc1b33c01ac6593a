// SPDX-License-Identifier: Apache-2.0
//
// The page in browsers of other engines than Chromium's: Firefox by puppeteer, and WebKitGTK's small browser by the
// WebDriver protocol, each behind the same few functions.
import { spawn } from 'node:child_process';
import { existsSync, mkdtempSync, readdirSync, rmSync, writeFileSync } from 'node:fs';
import { createServer } from 'node:net';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { phone, pictures, puppeteer } from './browser.js';

function webKitBinary() {
  return readdirSync('/usr/lib', { withFileTypes: true })
    .flatMap(({ name }) => ['4.0', '4.1'].map((version) => `/usr/lib/${name}/webkit2gtk-${version}/MiniBrowser`))
    .find((name) => existsSync(name));
}

/**
 * @typedef {object} Browser
 * @property {string} version
 * @property {(address: string) => Promise<void>} visit
 * @property {(body: string, ...args: unknown[]) => Promise<unknown>} run  a function's body, with `args`; may await
 * @property {(name: string) => Promise<void>} picture
 * @property {() => Promise<void>} close
 */

/** @returns {Promise<Browser | null>} null: it is not installed */
async function firefox() {
  const executablePath = process.env.FIREFOX ?? '/usr/bin/firefox-esr';
  if (!existsSync(executablePath)) {
    return null;
  }
  const browser = await puppeteer.launch({ browser: 'firefox', executablePath, headless: true, protocolTimeout: 300000 });
  const page = await browser.newPage();
  await page.setViewport({ width: phone.width, height: phone.height });
  return {
    version: await browser.version(),
    visit: (address) => page.goto(address),
    run: (body, ...args) => page.evaluate(`(async (...args) => {${body}})(...${JSON.stringify(args)})`),
    picture: (name) => page.screenshot({ path: path.join(pictures, `${name}.png`) }),
    close: () => browser.close(),
  };
}

function freePort() {
  return new Promise((resolve) => {
    const server = createServer().listen(0, '127.0.0.1', () => {
      const { port } = server.address();
      server.close(() => resolve(port));
    });
  });
}

/** @returns {Promise<Browser | null>} */
async function webKit() {
  const binary = webKitBinary();
  if (!existsSync('/usr/bin/WebKitWebDriver') || !existsSync('/usr/bin/Xvfb') || !binary) {
    return null;
  }
  const home = mkdtempSync(path.join(tmpdir(), 'tarn-webkit-'));
  // The display says its number when it is there.
  const display = spawn('Xvfb', ['-displayfd', '3', '-screen', '0', '800x1000x24', '-nolisten', 'tcp'],
    { stdio: ['ignore', 'ignore', 'ignore', 'pipe'] });
  const number = await new Promise((resolve) => display.stdio[3].once('data', (data) => resolve(String(data).trim())));
  const port = await freePort();
  const driver = spawn('WebKitWebDriver', [`--port=${port}`], {
    stdio: 'ignore',
    env: { ...process.env, DISPLAY: `:${number}`, HOME: home, XDG_CACHE_HOME: home, XDG_DATA_HOME: home,
      GDK_BACKEND: 'x11', LIBGL_ALWAYS_SOFTWARE: '1',
      JSC_useSharedArrayBuffer: '1' }, // which this port hides otherwise, also where pages are isolated
  });
  const ask = async (method, command, fields) => {
    const response = await fetch(`http://127.0.0.1:${port}${command}`,
      { method, body: fields && JSON.stringify(fields), signal: AbortSignal.timeout(300000) });
    const { value } = await response.json();
    if (!response.ok) {
      throw new Error(`${value.error}: ${value.message}`);
    }
    return value;
  };
  const close = () => {
    driver.kill();
    display.kill();
    try {
      rmSync(home, { recursive: true, force: true, maxRetries: 5, retryDelay: 200 });
    } catch {
      // The browser may still write to its caches.
    }
  };
  try {
    for (let patience = 200; ; --patience) {
      const isReady = await ask('GET', '/status').then(({ ready }) => ready, () => false);
      if (isReady) {
        break;
      }
      if (patience === 0) {
        throw new Error('WebKitWebDriver does not answer');
      }
      await new Promise((resolve) => setTimeout(resolve, 100));
    }
    const { sessionId, capabilities } = await ask('POST', '/session', {
      capabilities: { alwaysMatch: { 'webkitgtk:browserOptions': { binary, args: ['--automation'] } } },
    });
    const session = `/session/${sessionId}`;
    await ask('POST', `${session}/timeouts`, { script: 300000, pageLoad: 120000 });
    await ask('POST', `${session}/window/rect`, { width: phone.width, height: phone.height }).catch(() => {});
    return {
      version: `${capabilities.browserName} ${capabilities.browserVersion}`,
      visit: (url) => ask('POST', `${session}/url`, { url }),
      async run(body, ...args) {
        const script = `const done = arguments[arguments.length - 1];
          const args = Array.prototype.slice.call(arguments, 0, -1);
          (async () => {${body}})().then((value) => done({ value }), (error) => done({ error: String(error) }));`;
        const { value, error } = await ask('POST', `${session}/execute/async`, { script, args });
        if (error) {
          throw new Error(error);
        }
        return value;
      },
      async picture(name) {
        const bytes = await ask('GET', `${session}/screenshot`);
        writeFileSync(path.join(pictures, `${name}.png`), Buffer.from(bytes, 'base64'));
      },
      async close() {
        await ask('DELETE', session).catch(() => {});
        close();
      },
    };
  } catch (error) {
    close();
    throw error;
  }
}

export const engines = { firefox, webkit: webKit };
