// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import java.io.IOException;
import java.io.InputStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.StandardCopyOption;
import java.util.Locale;

/**
 * Finds the native library: where the platform keeps libraries (an app's own directory on Android, the
 * directories of the virtual machine's library path elsewhere), else inside the jar.
 */
final class NativeLibrary {
    private static final String NAME = "tarn_stitch_jni";

    private NativeLibrary() {}

    static void load() {
        try {
            System.loadLibrary(NAME);
        } catch (UnsatisfiedLinkError notInstalled) {
            try {
                loadFromJar();
            } catch (IOException | UnsatisfiedLinkError notInJar) {
                UnsatisfiedLinkError error =
                        new UnsatisfiedLinkError("The native half of TarnStitch cannot be loaded: "
                                + notInstalled.getMessage() + "; " + notInJar.getMessage());
                error.initCause(notInJar);
                throw error;
            }
        }
    }

    /** The place of this platform's library in the jar, such as native/linux-x86_64/libtarn_stitch_jni.so. */
    static String placeInJar(String osName, String osArch) {
        String os = osName.toLowerCase(Locale.ROOT).replaceAll("[^a-z0-9]", "");
        String arch = osArch.toLowerCase(Locale.ROOT);
        if (arch.equals("amd64")) {
            arch = "x86_64";
        } else if (arch.equals("arm64")) {
            arch = "aarch64";
        }
        return "native/" + os + "-" + arch + "/" + System.mapLibraryName(NAME);
    }

    private static void loadFromJar() throws IOException {
        String place = placeInJar(System.getProperty("os.name"), System.getProperty("os.arch"));
        try (InputStream library = NativeLibrary.class.getResourceAsStream(place)) {
            if (library == null) {
                throw new IOException("the jar holds none for this platform (no " + place + ")");
            }
            // A directory of our own, readable by nobody else: nobody can exchange the file before it is
            // loaded.
            Path directory = Files.createTempDirectory("tarnstitch-native");
            Path file = directory.resolve(System.mapLibraryName(NAME));
            try {
                Files.copy(library, file, StandardCopyOption.REPLACE_EXISTING);
                System.load(file.toString());
            } finally {
                // Once loaded, a library needs its file no more.
                Files.deleteIfExists(file);
                Files.deleteIfExists(directory);
            }
        }
    }
}
