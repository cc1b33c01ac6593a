// SPDX-License-Identifier: Apache-2.0
//
// Before the tests: the directory of the samples, and what the program is told.
if (!ENVIRONMENT_IS_PTHREAD) {
  Module.arguments = process.argv.slice(2);
  Module.preRun = () => {
    FS.mkdir('/samples');
    FS.mount(NODEFS, { root: process.env.TARN_SAMPLES }, '/samples');
  };
}
