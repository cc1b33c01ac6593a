// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import org.junit.platform.console.ConsoleLauncher;

/** The test runner with its report on standard error: the library writes its log to standard output. */
public final class RunTests {
    private RunTests() {}

    public static void main(String[] args) {
        System.setOut(System.err);
        ConsoleLauncher.main(args);
    }
}
