// SPDX-License-Identifier: Apache-2.0
//
// Serves the live page to this machine, and over HTTPS to the phones of its network:
//
//     web/serve [--port N] [--local]
//
// Prints the addresses, the phones' one also as a QR code. The certificate is made on the spot and kept with the
// user's cache; a browser asks once whether to trust it. With --local the network is left alone.
import { execFileSync, spawnSync } from 'node:child_process';
import { chmodSync, createReadStream, existsSync, mkdirSync, readFileSync, statSync } from 'node:fs';
import { createServer } from 'node:http';
import { createServer as createSecureServer } from 'node:https';
import { homedir, networkInterfaces } from 'node:os';
import path from 'node:path';
import { pipeline } from 'node:stream';
import { fileURLToPath } from 'node:url';
import { qrCode } from './serve-qr.mjs';

const here = path.dirname(fileURLToPath(import.meta.url));
const root = path.resolve(process.env.TARN_WEB_ROOT ?? path.join(here, '..', 'out', 'web', 'live'));
const portsApart = 363; // 8080 for this machine, 8443 for the phones

function options() {
  const found = { port: 8080, isLocal: false };
  for (let given = process.argv.slice(2); given.length > 0; given.shift()) {
    if (given[0] === '--local') {
      found.isLocal = true;
    } else if (given[0] === '--port' && /^\d+$/.test(given[1])) {
      found.port = Number(given[1]);
      given.shift();
    } else {
      const asked = given[0] === '--help';
      (asked ? console.log : console.error)('usage: web/serve [--port N] [--local]');
      process.exit(asked ? 0 : 2);
    }
  }
  if (found.port > 65535 - (found.isLocal ? 0 : portsApart)) {
    console.error(`Port ${found.port} is too large.`);
    process.exit(2);
  }
  return found;
}

const { port, isLocal } = options();
if (!existsSync(path.join(root, 'index.html'))) {
  console.error('The page has not been built yet: run scripts/web.sh first.');
  process.exit(1);
}

const types = {
  '.css': 'text/css; charset=utf-8',
  '.html': 'text/html; charset=utf-8',
  '.js': 'text/javascript; charset=utf-8',
  '.json': 'application/json',
  '.mp4': 'video/mp4',
  '.png': 'image/png',
  '.svg': 'image/svg+xml',
  '.txt': 'text/plain; charset=utf-8',
  '.wasm': 'application/wasm',
  '.webmanifest': 'application/manifest+json',
};

const policy = [
  "default-src 'self'",
  "script-src 'self' 'wasm-unsafe-eval'",
  "img-src 'self' blob:",
  "media-src 'self' blob:",
  "object-src 'none'",
  "base-uri 'none'",
  "form-action 'none'",
  "frame-ancestors 'none'",
].join('; ');

/** @returns {{ file: string, size: number } | null} what a request names, if it is a file of the page */
function fileOf(request) {
  try {
    const name = path.normalize(decodeURIComponent(new URL(request.url, 'http://localhost').pathname));
    const file = path.join(root, name.endsWith('/') ? `${name}index.html` : name);
    const found = statSync(file);
    return file.startsWith(root + path.sep) && found.isFile() ? { file, size: found.size } : null;
  } catch {
    return null; // no address, or no such file
  }
}

function answer(request, response) {
  const found = fileOf(request);
  if (!found || !['GET', 'HEAD'].includes(request.method)) {
    response
      .writeHead(found ? 405 : 404, { 'Content-Type': 'text/plain', 'X-Content-Type-Options': 'nosniff', ...(found ? { Allow: 'GET, HEAD' } : {}) })
      .end(found ? 'Not allowed\n' : 'Not found\n');
    return;
  }
  response.writeHead(200, {
    'Content-Type': types[path.extname(found.file)] ?? 'application/octet-stream',
    'Content-Length': found.size,
    'Cache-Control': 'no-cache',
    'X-Content-Type-Options': 'nosniff',
    'Referrer-Policy': 'no-referrer',
    // Shared memory, and so threads, for this page alone; nothing from elsewhere, no code made of text.
    ...(process.env.TARN_WEB_NOT_ISOLATED
      ? {}
      : { 'Cross-Origin-Opener-Policy': 'same-origin', 'Cross-Origin-Embedder-Policy': 'require-corp' }),
    'Cross-Origin-Resource-Policy': 'same-origin',
    'Permissions-Policy': 'camera=(self), microphone=()',
    'Content-Security-Policy': policy,
  });
  if (request.method === 'HEAD') {
    response.end();
  } else {
    pipeline(createReadStream(found.file), response, () => {}); // who goes away in the middle is let go
  }
}

function addresses() {
  return Object.values(networkInterfaces())
    .flat()
    .filter(({ family, internal }) => family === 'IPv4' && !internal)
    .map(({ address }) => address);
}

// A certificate for these addresses, of our own signature, for a year.
function certificate(names) {
  const directory = path.join(process.env.XDG_CACHE_HOME ?? path.join(homedir(), '.cache'), 'tarnstitch-web', 'serve');
  mkdirSync(directory, { recursive: true, mode: 0o700 });
  const key = path.join(directory, `${names.join('_')}.key`);
  const chain = path.join(directory, `${names.join('_')}.crt`);
  const lasts = () => {
    try {
      execFileSync('openssl', ['x509', '-checkend', '86400', '-noout', '-in', chain], { stdio: 'ignore' });
      return existsSync(key);
    } catch {
      return false;
    }
  };
  if (!lasts()) {
    const made = spawnSync('openssl', [
      'req', '-x509', '-newkey', 'ec', '-pkeyopt', 'ec_paramgen_curve:prime256v1', '-nodes', '-days', '365',
      '-subj', '/CN=TarnStitch live', '-addext', `subjectAltName=${names.map((name) => `IP:${name}`).join(',')}`,
      '-addext', 'extendedKeyUsage=serverAuth',
      '-keyout', key, '-out', chain,
    ], { encoding: 'utf8' });
    if (made.status !== 0) {
      throw new Error(made.error?.code === 'ENOENT'
        ? 'openssl is missing, which makes the certificate for phones. --local does without.'
        : `openssl makes no certificate: ${made.stderr.trim().split('\n').at(-1)}`);
    }
    chmodSync(key, 0o600);
  }
  return { key: readFileSync(key), cert: readFileSync(chain) };
}

function listen(server, on, host) {
  return new Promise((resolve, reject) => {
    server.once('error', reject);
    server.listen(on, host, () => resolve(server.address().port));
  });
}

try {
  const local = await listen(createServer(answer), port, '127.0.0.1');
  console.log(`On this machine:  http://localhost:${local}/`);
  const names = isLocal ? [] : addresses();
  if (names.length > 0) {
    const secure = await listen(createSecureServer(certificate(names), answer), port === 0 ? 0 : port + portsApart, '0.0.0.0');
    for (const name of names) {
      console.log(`On a phone:       https://${name}:${secure}/`);
    }
    console.log('\nThe browser warns of the certificate, which was made here: go on all the same.\n');
    console.log(qrCode(`https://${names[0]}:${secure}/`));
  }
} catch (error) {
  console.error(error.code === 'EADDRINUSE' ? `Port ${error.port} is in use: try another by --port.` : `error: ${error.message}`);
  process.exit(1);
}
