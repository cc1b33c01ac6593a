// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Native memory over 10,000 frames and 200 sweeps. */
class MemoryTest {
    @TempDir
    Path directory;

    @Test
    void tenThousandFramesAndTwoHundredSweepsLeaveNothingBehind() throws Exception {
        // The heap is complete from the start, so that what grows is native. One arena, so that memory which
        // one worker has given back serves the next one, whatever its thread.
        List<String> command = Setup.java("-Xms128m", "-Xmx128m", "-XX:+AlwaysPreTouch",
                "-cp", System.getProperty("java.class.path"),
                "org.tarnstitch.Probe", "memory", directory.resolve("work").toUri().toString());
        Setup.Ended probe = Setup.run(command, "MALLOC_ARENA_MAX", "1");
        assertEquals(0, probe.exitCode, probe.toString());
        List<Long> resident = new ArrayList<>();
        for (String line : probe.errors.split("\n")) {
            if (line.startsWith("resident ")) {
                resident.add(Long.valueOf(line.substring("resident ".length())));
            }
        }
        System.err.println("Resident memory after every 500 frames, KiB: " + resident);
        assertEquals(20, resident.size(), probe.toString());
        // The least of several, since workers are at their images at some of the moments; and not of the first
        // quarter, in which the allocator takes what as many workers at once as this machine brings about need. A
        // preview that is not freed would be 300 KiB or more: 750 MiB in a quarter; a sweep that leaves one frame
        // behind, 25 MiB.
        long growth = Collections.min(resident.subList(10, 20)) - Collections.min(resident.subList(5, 10));
        assertTrue(growth < 16 * 1024, "grew by " + growth + " KiB: " + resident);
    }
}
