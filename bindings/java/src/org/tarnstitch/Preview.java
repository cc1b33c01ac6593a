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
    private final float[] outline;
    private final boolean frozen;

    Preview(int[] pixels, int width, int height, float[] outline, boolean frozen) {
        this.pixels = pixels;
        this.width = width;
        this.height = height;
        this.outline = outline;
        this.frozen = frozen;
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

    /**
     * The corners of the frame taken last: where the camera looks. They may reach beyond the preview until the next
     * key frame.
     *
     * @return x and y of top-left, top-right, bottom-right and bottom-left corner in turn, eight numbers in a new
     *     array; none while no frame lies in the preview; never null
     */
    public float[] outline() {
        return outline.clone();
    }

    /**
     * Whether the preview has reached its greatest size. The sweep and the panorama go on, the preview does not
     * grow any more.
     *
     * @return true if so
     */
    public boolean isFrozen() {
        return frozen;
    }
}
