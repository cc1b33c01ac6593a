#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
#
# The library for browsers: builds it as WebAssembly, with threads and without, and puts together the npm package in
# out/web/tarnstitch and the live page in out/web/live. Installs what is missing. The libraries that it is linked with
# are built once, in $XDG_CACHE_HOME/tarnstitch-web or ~/.cache/tarnstitch-web.
set -euo pipefail
# shellcheck source=scripts/lib/common.sh
source "$(dirname "${BASH_SOURCE[0]}")/lib/common.sh"
# shellcheck source=scripts/lib/wasm.sh
source "$root/scripts/lib/wasm.sh"

need_packages "${wasm_packages[@]}"
wasm_environment
need_wasm_libraries
libraries=$(wasm_libraries)

say "Building the library"
grep -qs "^OpenCV_DIR:.*=$libraries/" build/web/wasm/CMakeCache.txt \
  || emcmake cmake -S web/native -B build/web/wasm -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DOpenCV_DIR="$libraries/lib/cmake/opencv4" >/dev/null
cmake --build build/web/wasm --parallel "$jobs"

say "Putting the package together"
package=out/web/tarnstitch
rm -rf out/web
mkdir -p "$package"
cp web/package.json web/README.md web/src/* LICENSE "$package"
for name in tarnstitch-threads tarnstitch-single; do
  cp "build/web/wasm/$name.js" "build/web/wasm/$name.wasm" "$package"
done
cp build/web/wasm/tarnstitch-threads.worker.js "$package"
{
  cat <<END
This package contains, compiled into its .wasm and .js files, parts of these works, as Debian has them:
${wasm_sources[*]}, and the libraries of emscripten $(emcc --version | sed -n '1s/.*) \([0-9.]*\).*/\1/p').

OpenCV is changed in one place: arc tangents are computed as on other systems. The others are not changed. The source of
each, of Eigen under the Mozilla Public License 2.0 among them, is had by \`apt-get source\` with the names and versions
above. The files under a GPL or an LGPL that the texts name are no part of this package. Where a text refers to
/usr/share/common-licenses/Apache-2.0, that is the file LICENSE.
END
  for name in opencv eigen libjpeg-turbo zlib; do
    printf '\n\n======== %s\n\n' "$name"
    cat "$libraries/licences/$name"
  done
  printf '\n\n======== emscripten, musl, libc++\n\n'
  cat /usr/share/doc/emscripten/copyright
} >"$package/THIRD-PARTY-NOTICES.txt"

say "Putting the page together"
page=out/web/live
mkdir -p "$page/tarnstitch"
cp -R web/live/. "$page"
cp "$package"/*.js "$package"/*.wasm "$package/THIRD-PARTY-NOTICES.txt" "$package/LICENSE" "$page/tarnstitch"
rm "$page"/tarnstitch/node*.js
# The service worker keeps all files, under a version that changes with any of them.
mapfile -t files < <(cd "$page" && find . -type f ! -name sw.js ! -name '*.txt' ! -name LICENSE -printf "'%P'\n" | LC_ALL=C sort)
version=$(cd "$page" && find . -type f -print0 | LC_ALL=C sort -z | xargs -0 sha256sum | sha256sum | cut -c 1-12)
list="'./', $(IFS=, && echo "${files[*]}")"
sed -i "s|@VERSION@|$version|; s|/\* @FILES@ \*/|$list|" "$page/sw.js"

# size FILE…: bytes after brotli, which is how a server sends them.
size() {
  local file total=0
  for file in "$@"; do
    total=$((total + $(brotli --quality=11 --stdout "$file" | wc -c)))
  done
  echo "$total"
}
scripts=("$package"/{index,worker,engine,module,pixels,words}.js)
for name in tarnstitch-threads tarnstitch-single; do
  files=("$package/$name".*)
  bytes=$(size "${files[@]}" "${scripts[@]}")
  say "$name: $(stat -c %s "$package/$name.wasm") bytes of WebAssembly, $bytes bytes sent with its JavaScript"
  ((bytes <= 850 * 1000)) || fail "$name is larger than 850 KB."
done
say "The package: $root/$package"
say "The page: $root/$page; web/serve shows it"
