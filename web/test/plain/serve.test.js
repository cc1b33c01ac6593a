// SPDX-License-Identifier: Apache-2.0
//
// The page's server: what it sends, with which headers, and what it does not give away.
import assert from 'node:assert/strict';
import { spawn, spawnSync } from 'node:child_process';
import { mkdirSync, mkdtempSync, readdirSync, rmSync, statSync, writeFileSync } from 'node:fs';
import { request } from 'node:http';
import { request as secureRequest } from 'node:https';
import { connect, createServer } from 'node:net';
import { networkInterfaces, tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, describe, it } from 'node:test';
import { fileURLToPath } from 'node:url';

const script = fileURLToPath(new URL('../../serve.mjs', import.meta.url));

function serve(files, environment = {}, isLocal = true) {
  const server = spawn(process.execPath, [script, ...(isLocal ? ['--local'] : []), '--port', '0'],
    { env: { ...process.env, TARN_WEB_ROOT: files, ...environment }, stdio: ['ignore', 'pipe', 'inherit'] });
  let said = '';
  return new Promise((resolve, reject) => {
    server.once('error', reject);
    server.once('exit', (code) => reject(new Error(`it ended with ${code}`)));
    server.stdout.on('data', (data) => {
      said += data;
      if (isLocal || /\u2588\u001b\[0m\n$/.test(said)) { // the code's last line
        resolve({ port: Number(said.match(/:(\d+)\//)[1]), said, stop: () => server.kill() });
      }
    });
  });
}

// The server as it ends by itself.
function run(files, ...options) {
  return spawnSync(process.execPath, [script, ...options], { env: { ...process.env, TARN_WEB_ROOT: files }, encoding: 'utf8' });
}

// As it stands: fetch would tidy the path up.
function ask(port, target, method = 'GET') {
  return new Promise((resolve, reject) => {
    const asked = request({ host: '127.0.0.1', port, path: target, method }, (response) => {
      let body = '';
      response.on('data', (data) => (body += data));
      response.on('end', () => resolve({ status: response.statusCode, headers: response.headers, body }));
    });
    asked.on('error', reject);
    asked.end();
  });
}

describe('the server', () => {
  let directory;
  let server;
  before(async () => {
    directory = mkdtempSync(path.join(tmpdir(), 'tarn-serve-'));
    const root = path.join(directory, 'page');
    mkdirSync(path.join(root, 'sub'), { recursive: true });
    writeFileSync(path.join(root, 'index.html'), 'the page');
    writeFileSync(path.join(root, 'sub', 'a.wasm'), 'module');
    writeFileSync(path.join(directory, 'secret.txt'), 'secret');
    mkdirSync(path.join(directory, 'page-of-others'));
    writeFileSync(path.join(directory, 'page-of-others', 'secret.txt'), 'secret');
    server = await serve(root);
  });
  after(() => {
    server?.stop();
    rmSync(directory, { recursive: true });
  });

  it('sends the page isolated, and lets no code be made of text', async () => {
    const { status, headers, body } = await ask(server.port, '/');
    assert.equal(status, 200);
    assert.equal(body, 'the page');
    assert.equal(headers['cross-origin-opener-policy'], 'same-origin');
    assert.equal(headers['cross-origin-embedder-policy'], 'require-corp');
    assert.match(headers['content-security-policy'], /script-src 'self' 'wasm-unsafe-eval'/);
    assert.doesNotMatch(headers['content-security-policy'], /'unsafe-/);
  });

  it('sends modules as what they are, and heads without bodies', async () => {
    const { headers, body } = await ask(server.port, '/sub/a.wasm');
    assert.equal(headers['content-type'], 'application/wasm');
    assert.equal(body, 'module');
    const head = await ask(server.port, '/sub/a.wasm', 'HEAD');
    assert.equal(head.headers['content-length'], '6');
    assert.equal(head.body, '');
  });

  it('gives nothing from outside its directory', async () => {
    for (const target of ['/../secret.txt', '/%2e%2e/secret.txt', '/sub/..%2f..%2fsecret.txt', '/../page-of-others/secret.txt',
      '/sub/%00', '/%zz', '/sub', '/none']) {
      const { status, body } = await ask(server.port, target);
      assert.equal(status, 404, target);
      assert.doesNotMatch(body, /secret/);
    }
    assert.equal((await ask(server.port, '/', 'POST')).status, 405);
    assert.equal((await ask(server.port, '/')).status, 200, 'it is still there');
  });

  it('survives what is no address', async () => {
    for (const target of ['//', 'http://[', '/\\', '*']) {
      const text = await new Promise((resolve, reject) => {
        let heard = '';
        const socket = connect(server.port, '127.0.0.1', () => socket.write(`GET ${target} HTTP/1.1\r\nHost: a\r\nConnection: close\r\n\r\n`));
        socket.on('data', (data) => (heard += data)).on('end', () => resolve(heard)).on('error', reject);
      });
      assert.match(text, /^HTTP\/1.1 [24]0[0-9]/, target);
    }
    assert.equal((await ask(server.port, '/')).status, 200, 'it is still there');
  });

  it('says what is wrong with its options, with its page and with its port', async () => {
    const page = path.join(directory, 'page');
    for (const options of [['--port'], ['--port', 'x'], ['--port', '70000', '--local'], ['--port', '65400'], ['--none']]) {
      const { status, stderr } = run(page, ...options);
      assert.equal(status, 2, options.join(' '));
      assert.match(stderr, /usage|too large/);
    }
    assert.match(run(page, '--help').stdout, /usage/);
    assert.match(run(path.join(directory, 'none'), '--local').stderr, /not been built/);
    const holder = createServer();
    await new Promise((resolve) => holder.listen(0, '127.0.0.1', resolve));
    const { port } = holder.address();
    const { status, stderr } = run(page, '--local', '--port', String(port));
    holder.close();
    assert.equal(status, 1);
    assert.match(stderr, new RegExp(`Port ${port} is in use`));
  });

  it('serves phones over HTTPS, by a certificate of its own that only its user can read', async (test) => {
    const cache = path.join(directory, 'cache');
    const page = path.join(directory, 'page');
    const addresses = Object.values(networkInterfaces()).flat().filter(({ family, internal }) => family === 'IPv4' && !internal);
    if (addresses.length === 0) {
      test.skip('no network');
      return;
    }
    const shared = await serve(page, { XDG_CACHE_HOME: cache }, false);
    try {
      const [, host, port] = shared.said.match(/https:\/\/([\d.]+):(\d+)\//);
      const { status, headers, certificate } = await new Promise((resolve, reject) => {
        secureRequest({ host, port, path: '/', rejectUnauthorized: false }, (response) => {
          response.resume();
          resolve({ status: response.statusCode, headers: response.headers, certificate: response.socket.getPeerCertificate() });
        }).on('error', reject).end();
      });
      assert.equal(status, 200);
      assert.equal(headers['cross-origin-opener-policy'], 'same-origin');
      assert.ok(certificate.subjectaltname.includes(`IP Address:${host}`), certificate.subjectaltname);
      const kept = path.join(cache, 'tarnstitch-web/serve');
      const key = readdirSync(kept).find((name) => name.endsWith('.key'));
      assert.equal(statSync(path.join(kept, key)).mode & 0o077, 0);
      assert.equal(statSync(kept).mode & 0o077, 0);
    } finally {
      shared.stop();
    }
  });

  it('says that the certificate cannot be made', async (test) => {
    if (Object.values(networkInterfaces()).flat().every(({ internal }) => internal)) {
      test.skip('no network');
      return;
    }
    const empty = path.join(directory, 'empty');
    const { status, stderr } = spawnSync(process.execPath, [script, '--port', '0'], {
      env: { ...process.env, PATH: empty, XDG_CACHE_HOME: empty, TARN_WEB_ROOT: path.join(directory, 'page') }, encoding: 'utf8' });
    assert.equal(status, 1);
    assert.match(stderr, /openssl is missing/);
  });

  it('is not isolated where it is told so', async () => {
    const plain = await serve(path.join(directory, 'page'), { TARN_WEB_NOT_ISOLATED: '1' });
    try {
      assert.equal((await ask(plain.port, '/')).headers['cross-origin-opener-policy'], undefined);
    } finally {
      plain.stop();
    }
  });
});
