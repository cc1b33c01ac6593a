// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collections;
import java.util.List;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Where the native half comes from. */
class LibraryLoadingTest {
    private static final String LIBRARY_PATH = "LD_LIBRARY_PATH";

    @TempDir
    Path directory;

    private Path temporary;

    @BeforeEach
    void makeTemporaryDirectory() throws Exception {
        temporary = Files.createDirectory(directory.resolve("tmp"));
    }

    @Test
    void itIsFoundInTheLibraryPath() throws Exception {
        Setup.Ended ended = probe(Setup.CLASSES, System.getenv(LIBRARY_PATH), "/sweep");
        assertEquals(0, ended.exitCode, ended.toString());
    }

    @Test
    void itIsFoundInTheJarAndLeavesNoFileBehind() throws Exception {
        Setup.Ended ended = probe(Setup.JAR, "/nowhere", "/sweep");
        assertEquals(0, ended.exitCode, ended.toString());
        assertEquals(0, temporary.toFile().list().length);
    }

    @Test
    void bothFailuresAreNamedWhenItIsNowhere() throws Exception {
        Setup.Ended ended = probe(Setup.CLASSES, "/nowhere", "/sweep");
        assertEquals(1, ended.exitCode, ended.toString());
        assertTrue(
                ended.errors.contains("UnsatisfiedLinkError: The native half of TarnStitch cannot be loaded: "
                        + "no tarn_stitch_jni in "),
                ended.errors);
        assertTrue(ended.errors.contains(": /nowhere"), ended.errors);
        assertTrue(ended.errors.contains("the jar holds none for this platform (no native/"), ended.errors);
        assertEquals(0, temporary.toFile().list().length);
    }

    @Test
    void aLocaleWithoutUmlautsDoesNotMatter() throws Exception {
        Setup.Ended ended = probe(Setup.JAR, "/nowhere", "/%C3%BCber", "LC_ALL", "C");
        assertEquals(0, ended.exitCode, ended.toString());
    }

    @Test
    void platformsAreNamedAsTheBuildNamesThem() {
        String file = System.mapLibraryName("tarn_stitch_jni");
        assertEquals("native/linux-x86_64/" + file, NativeLibrary.placeInJar("Linux", "amd64"));
        assertEquals("native/linux-x86_64/" + file, NativeLibrary.placeInJar("Linux", "x86_64"));
        assertEquals("native/linux-aarch64/" + file, NativeLibrary.placeInJar("Linux", "aarch64"));
        assertEquals("native/macosx-aarch64/" + file, NativeLibrary.placeInJar("Mac OS X", "aarch64"));
        assertEquals("native/macosx-x86_64/" + file, NativeLibrary.placeInJar("Mac OS X", "x86_64"));
    }

    private Setup.Ended probe(String jar, String libraryPath, String work, String... environment)
            throws Exception {
        String tests = Probe.class.getProtectionDomain().getCodeSource().getLocation().getPath();
        String uri = directory.toUri().toString().replaceAll("/$", "") + work;
        List<String> command = Setup.java("-Djava.io.tmpdir=" + temporary, "-cp", Setup.path(jar, tests),
                "org.tarnstitch.Probe", "panorama", uri);
        List<String> whole = new ArrayList<>(Arrays.asList(environment));
        Collections.addAll(whole, LIBRARY_PATH, libraryPath);
        return Setup.run(command, whole.toArray(new String[0]));
    }
}
