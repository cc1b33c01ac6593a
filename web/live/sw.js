// SPDX-License-Identifier: Apache-2.0
//
// The page without a network: everything is kept at the first visit, under the name of its version. A newer version is
// fetched beside it and waits until a page begins that says so: the files of two versions never meet in one page. It
// also says that the page is isolated, which threads need, where the server that it came from does not.

const version = '@VERSION@'; // set when the page is put together
const files = [/* @FILES@ */];
const kept = `tarnstitch-live-${version}`;

self.addEventListener('install', (event) => {
  event.waitUntil(
    caches
      .open(kept)
      .then((cache) => cache.addAll(files.map((file) => new Request(file, { cache: 'reload' })))),
  );
});

self.addEventListener('message', ({ data }) => {
  if (data === 'take over') {
    self.skipWaiting();
  }
});

self.addEventListener('activate', (event) => {
  const old = (name) => name.startsWith('tarnstitch-live-') && name !== kept;
  event.waitUntil(
    caches
      .keys()
      .then((names) => Promise.all(names.filter(old).map((name) => caches.delete(name))))
      .then(() => self.clients.claim()),
  );
});

function isolated(response) {
  if (response.status === 0 || response.headers.get('Cross-Origin-Opener-Policy') === 'same-origin') {
    return response;
  }
  const headers = new Headers(response.headers);
  headers.set('Cross-Origin-Opener-Policy', 'same-origin');
  headers.set('Cross-Origin-Embedder-Policy', 'require-corp');
  headers.set('Cross-Origin-Resource-Policy', 'same-origin');
  return new Response(response.body, { status: response.status, statusText: response.statusText, headers });
}

self.addEventListener('fetch', (event) => {
  const { request } = event;
  if (request.method !== 'GET' || new URL(request.url).origin !== location.origin) {
    return;
  }
  event.respondWith(
    caches
      .open(kept)
      .then((cache) => cache.match(request, { ignoreSearch: request.mode === 'navigate' }))
      .then((found) => found ?? fetch(request))
      .then(isolated),
  );
});
