// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import java.nio.ByteBuffer;
import java.util.Random;

/** Frames that nobody has filmed. */
final class Frames {
    private Frames() {}

    /**
     * A part of a wide picture of random patches, as a camera sees it that has moved right by {@code x} pixels.
     */
    static ByteBuffer madeUp(int width, int height, int x) {
        int patch = Math.max(16, width / 40);
        int[] row = new int[width];
        ByteBuffer rgba = ByteBuffer.allocateDirect(4 * width * height);
        for (int y = 0; y < height; ++y) {
            if (y % patch == 0) {
                for (int column = 0; column < width; ++column) {
                    row[column] = new Random((column + x) / patch * 7919L + y / patch).nextInt() | 0x404040FF;
                }
            }
            for (int pixel : row) {
                rgba.putInt(pixel);
            }
        }
        rgba.rewind();
        return rgba;
    }
}
