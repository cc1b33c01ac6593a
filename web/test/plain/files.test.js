// SPDX-License-Identifier: Apache-2.0
//
// What the files of the package and of the page say of each other.
import assert from 'node:assert/strict';
import { existsSync, readFileSync, readdirSync } from 'node:fs';
import path from 'node:path';
import { describe, it } from 'node:test';
import { fileURLToPath } from 'node:url';

const web = fileURLToPath(new URL('../..', import.meta.url));
const read = (name) => readFileSync(path.join(web, name), 'utf8');
const matches = (text, pattern) => [...text.matchAll(pattern)].map(([, found]) => found);

describe('the types', () => {
  it('name what the package exports', async () => {
    const names = matches(read('src/index.d.ts'), /^export (?:declare )?(?:async )?(?:class|function|const) (\w+)/gm);
    assert.deepEqual([...new Set(names)].sort(), Object.keys(await import('../../src/index.js')).sort());
  });

  it('name every problem, code and state that there is', async () => {
    const { codes, extents, formats, pipelines, problems } = await import('../../src/words.js');
    const types = read('src/index.d.ts');
    const words = [...codes.values(), ...pipelines.values(), ...problems.values(), ...extents, ...Object.keys(formats)];
    for (const word of words) {
      assert.ok(types.includes(`'${word}'`), word);
    }
  });
});

describe('the page', () => {
  const page = read('live/index.html');
  const scripts = readdirSync(path.join(web, 'live')).filter((name) => name.endsWith('.js'));

  it('has every element that its scripts ask for', () => {
    const ids = new Set(matches(page, / id="([^"]+)"/g));
    assert.equal(ids.size, matches(page, / id="([^"]+)"/g).length, 'an id is there twice');
    for (const script of scripts) {
      for (const id of matches(read(`live/${script}`), /(?:\$|getElementById)\('([\w-]+)'\)/g)) {
        assert.ok(ids.has(id), `${script}: ${id}`);
      }
    }
  });

  it('has every file that it refers to, and asks for nothing from elsewhere', () => {
    const { icons } = JSON.parse(read('live/manifest.webmanifest'));
    const references = [...matches(page, /(?:src|href)="([^"#]+)"/g), ...icons.map(({ src }) => src)];
    assert.ok(references.length >= 6);
    for (const reference of references) {
      assert.ok(existsSync(path.join(web, 'live', reference)), reference);
    }
    for (const name of [...scripts, 'live.css', 'index.html']) {
      assert.doesNotMatch(read(`live/${name}`).replaceAll('http://www.w3.org/2000/svg', ''), /https?:\/\//, name);
    }
  });

  it('has a label for every button', () => {
    for (const [button, attributes, inside] of page.matchAll(/<button([^>]*)>(.*?)<\/button>/gs)) {
      assert.ok(/aria-label="\w/.test(attributes) || /\w/.test(inside.replace(/<[^>]*>/g, '')), button);
    }
  });
});
