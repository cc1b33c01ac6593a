// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import static org.junit.jupiter.api.Assertions.assertEquals;

import java.nio.file.Path;
import org.junit.jupiter.api.RepeatedTest;
import org.junit.jupiter.api.io.TempDir;

/** The process may end while a thread is inside the library and workers are busy. */
class ProcessEndTest {
    private static final int TIMES = 5;

    @TempDir
    Path directory;

    @RepeatedTest(TIMES)
    void mainReturnsWhileAnotherThreadHandsOverFrames() throws Exception {
        endsWith(0, "return");
    }

    @RepeatedTest(TIMES)
    void mainReturnsWhileAnotherThreadWaitsForThePanorama() throws Exception {
        endsWith(0, "return-from-last");
    }

    @RepeatedTest(TIMES)
    void aCallOfExitInMidSweepKeepsItsExitCode() throws Exception {
        endsWith(7, "exit");
    }

    private void endsWith(int exitCode, String how) throws Exception {
        Setup.Ended ended = Setup.run(Setup.java(
                "-XX:ErrorFile=" + directory.resolve("crash.log"), "-cp", System.getProperty("java.class.path"),
                "org.tarnstitch.Probe", how, directory.resolve("work").toUri().toString()));
        assertEquals(exitCode, ended.exitCode, ended.toString());
        assertEquals("", ended.errors);
    }
}
