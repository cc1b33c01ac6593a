// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import java.nio.ByteBuffer;
import java.util.Objects;

/**
 * A picture of the camera where it lies in memory.
 *
 * <p>Its first pixel is the first byte of the buffer: position, limit and byte order are neither looked at nor
 * changed. Nothing is copied and nothing is checked before the frame is handed over; the buffer must keep the
 * picture until that call has returned, and is only read. Immutable; any thread may use it.
 */
public final class Frame {
    final ByteBuffer pixels;
    final int width;
    final int height;
    final int rowStride;
    final int format;

    private Frame(ByteBuffer pixels, int width, int height, int rowStride, int format) {
        this.pixels = Objects.requireNonNull(pixels, "the buffer of the frame is null");
        this.width = width;
        this.height = height;
        this.rowStride = rowStride;
        this.format = format;
    }

    /**
     * A frame of four bytes a pixel: red, green, blue, alpha. Alpha is ignored.
     *
     * @param pixels a direct buffer, not null
     * @param width in pixels, 1 to 16384
     * @param height in pixels, 1 to 16384
     * @param rowStride bytes from the start of a row to the start of the next, at least those of a row; 0 for rows
     *     without padding. The last row needs no padding behind it
     * @return the frame, never null
     * @throws NullPointerException if {@code pixels} is null
     */
    public static Frame rgba(ByteBuffer pixels, int width, int height, int rowStride) {
        return new Frame(pixels, width, height, rowStride, 1);
    }

    /**
     * A frame of four bytes a pixel: blue, green, red, alpha. Alpha is ignored.
     *
     * @param pixels as for {@link #rgba}, as all that follows
     * @param width in pixels
     * @param height in pixels
     * @param rowStride in bytes
     * @return the frame, never null
     * @throws NullPointerException if {@code pixels} is null
     */
    public static Frame bgra(ByteBuffer pixels, int width, int height, int rowStride) {
        return new Frame(pixels, width, height, rowStride, 2);
    }

    /**
     * A frame of three bytes a pixel: blue, green, red.
     *
     * @param pixels as for {@link #rgba}, as all that follows
     * @param width in pixels
     * @param height in pixels
     * @param rowStride in bytes
     * @return the frame, never null
     * @throws NullPointerException if {@code pixels} is null
     */
    public static Frame bgr(ByteBuffer pixels, int width, int height, int rowStride) {
        return new Frame(pixels, width, height, rowStride, 3);
    }

    /**
     * A frame of one byte a pixel: its brightness.
     *
     * @param pixels as for {@link #rgba}, as all that follows
     * @param width in pixels
     * @param height in pixels
     * @param rowStride in bytes
     * @return the frame, never null
     * @throws NullPointerException if {@code pixels} is null
     */
    public static Frame gray(ByteBuffer pixels, int width, int height, int rowStride) {
        return new Frame(pixels, width, height, rowStride, 4);
    }
}
