// SPDX-License-Identifier: Apache-2.0
//
// What is given back when the page was closed, or discarded by the device, before its user was done with a sweep: the
// panorama, or the small picture while there is none. It is this tab's, and gone with the next sweep.
const cacheName = 'tarnstitch-kept';
const smallKey = 'tarnstitch-kept-small';
const nameKey = 'tarnstitch-kept-name';
const longest = 24 * 3600 * 1000; // ms, after which tabs that never came back are forgotten

const kinds = ['whole', 'cropped'];
const addressOf = (name, kind) => new URL(`kept/${name}-${kind}.jpg`, location.href).href;

/** @param {HTMLCanvasElement | null} picture  the small one */
export function keepSmall(picture) {
  try {
    if (picture && !sessionStorage.getItem(nameKey)) {
      sessionStorage.setItem(smallKey, picture.toDataURL('image/jpeg', 0.9));
    }
  } catch {
    // No room for it: then there is nothing to give back.
  }
}

/** @param {{ whole: Blob, cropped: Blob | null }} panorama */
export async function keepPanorama(panorama) {
  try {
    const cache = await caches.open(cacheName);
    const name = String(Date.now());
    for (const kind of kinds.filter((one) => panorama[one])) {
      await cache.put(addressOf(name, kind), new Response(panorama[kind]));
    }
    sessionStorage.setItem(nameKey, name);
    sessionStorage.removeItem(smallKey);
    for (const { url } of await cache.keys()) {
      if (Number(url.match(/kept\/(\d+)-/)?.[1]) < Date.now() - longest) {
        await cache.delete(url);
      }
    }
  } catch {
    // As above.
  }
}

function blobOf(url) {
  const [kind, bytes] = url.split(',');
  const type = kind.slice('data:'.length).split(';')[0];
  return new Blob([Uint8Array.from(atob(bytes), (letter) => letter.charCodeAt(0))], { type });
}

/** @returns {Promise<{ whole: Blob, cropped: Blob | null, isSmall: boolean } | null>} */
export async function takeBack() {
  try {
    const name = sessionStorage.getItem(nameKey);
    if (name) {
      const cache = await caches.open(cacheName);
      const [whole, cropped] = await Promise.all(
        kinds.map(async (kind) => (await (await cache.match(addressOf(name, kind)))?.blob()) ?? null));
      if (whole) {
        return { whole, cropped, isSmall: false };
      }
    }
    const small = sessionStorage.getItem(smallKey);
    return small ? { whole: blobOf(small), cropped: null, isSmall: true } : null;
  } catch {
    return null;
  }
}

/** There is nothing more to give back. */
export function forget() {
  try {
    const name = sessionStorage.getItem(nameKey);
    sessionStorage.removeItem(nameKey);
    sessionStorage.removeItem(smallKey);
    if (name) {
      const gone = (cache) => Promise.all(kinds.map((kind) => cache.delete(addressOf(name, kind))));
      caches.open(cacheName).then(gone).catch(() => {});
    }
  } catch {
    // Nothing was kept then.
  }
}
