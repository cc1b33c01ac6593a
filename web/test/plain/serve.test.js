// SPDX-License-Identifier: Apache-2.0
//
// The page's server: what it sends, with which headers, and what it does not give away.
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { mkdirSync, mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { request } from 'node:http';
import { tmpdir } from 'node:os';
import path from 'node:path';
import { after, before, describe, it } from 'node:test';
import { fileURLToPath } from 'node:url';

const script = fileURLToPath(new URL('../../serve.mjs', import.meta.url));

function serve(files, environment = {}) {
  const server = spawn(process.execPath, [script, '--local', '--port', '0'],
    { env: { ...process.env, TARN_WEB_ROOT: files, ...environment }, stdio: ['ignore', 'pipe', 'inherit'] });
  return new Promise((resolve, reject) => {
    server.once('error', reject);
    server.stdout.once('data', (data) => {
      resolve({ port: Number(String(data).match(/:(\d+)\//)[1]), stop: () => server.kill() });
    });
  });
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

  it('is not isolated where it is told so', async () => {
    const plain = await serve(path.join(directory, 'page'), { TARN_WEB_NOT_ISOLATED: '1' });
    try {
      assert.equal((await ask(plain.port, '/')).headers['cross-origin-opener-policy'], undefined);
    } finally {
      plain.stop();
    }
  });
});
