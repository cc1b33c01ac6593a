// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import java.io.ByteArrayOutputStream;
import java.net.URI;
import java.nio.file.FileSystems;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.Locale;

/**
 * Paths as the bytes that the file system knows them by, and back.
 *
 * <p>A String is no substitute: it is decoded by the locale, and a name that the locale has no characters for
 * (any accent, where it is "C") comes back as question marks. The URI of a path spells the bytes out.
 */
final class PathBytes {
    private PathBytes() {}

    /** The path must be one of the default file system; a relative one is resolved. */
    static byte[] of(Path path) {
        if (path.getFileSystem() != FileSystems.getDefault()) {
            throw new IllegalArgumentException("the path " + path + " is not in the default file system");
        }
        String spelt = path.toUri().getRawPath();
        ByteArrayOutputStream bytes = new ByteArrayOutputStream(spelt.length());
        for (int i = 0; i < spelt.length(); ++i) {
            char c = spelt.charAt(i);
            if (c == '%') {
                bytes.write(Integer.parseInt(spelt.substring(i + 1, i + 3), 16));
                i += 2;
            } else {
                bytes.write(c);
            }
        }
        return bytes.toByteArray();
    }

    static Path toPath(byte[] absolutePath) {
        StringBuilder spelt = new StringBuilder("file://");
        for (byte b : absolutePath) {
            boolean plain = b == '/' || b == '.' || b == '-' || b == '_' || (b >= '0' && b <= '9')
                    || (b >= 'a' && b <= 'z') || (b >= 'A' && b <= 'Z');
            if (plain) {
                spelt.append((char) b);
            } else {
                spelt.append(String.format(Locale.ROOT, "%%%02X", b & 0xFF));
            }
        }
        return Paths.get(URI.create(spelt.toString()));
    }
}
