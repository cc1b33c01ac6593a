// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

/**
 * The preview panorama at one moment, as packed pixels.
 *
 * <p>The layout is that of {@code android.graphics.Bitmap.createBitmap(int[], int, int, Config)} and of a
 * desktop image of type {@code TYPE_INT_ARGB}: one {@code int} per pixel, row by row from the top, each row
 * from the left, without padding; bits 24 to 31 are alpha (always 255), 16 to 23 red, 8 to 15 green, 0 to 7
 * blue.
 *
 * <p>An object belongs to whoever asked for it: the library keeps nothing of it. Threads that share one must
 * agree on who writes to {@link #pixels()}, if anybody does.
 */
public final class Preview {
    private final int[] pixels;
    private final int width;
    private final int height;

    Preview(int[] pixels, int width, int height) {
        this.pixels = pixels;
        this.width = width;
        this.height = height;
    }

    /**
     * The pixels, 0xFFRRGGBB each.
     *
     * @return the array itself, of {@code width() * height()} elements; the pixel in column x of row y is at
     *     {@code y * width() + x}
     */
    public int[] pixels() {
        return pixels;
    }

    /**
     * The width in pixels.
     *
     * @return 0 while there is no preview
     */
    public int width() {
        return width;
    }

    /**
     * The height in pixels.
     *
     * @return 0 while there is no preview
     */
    public int height() {
        return height;
    }

    /**
     * Whether there is nothing to show yet. Bitmaps without pixels cannot be made, so ask before making one.
     *
     * @return true before the first frame that the library could track
     */
    public boolean isEmpty() {
        return pixels.length == 0;
    }
}
