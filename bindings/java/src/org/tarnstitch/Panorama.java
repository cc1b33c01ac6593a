// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import java.io.IOException;
import java.nio.file.Path;
import java.util.Optional;

/**
 * The end of a sweep: its panorama, or why there is none.
 *
 * <p>It holds the picture itself and needs neither the sweep nor its directory any more. Immutable; any thread may
 * use it.
 */
public final class Panorama {
    /** How much of the sweep a panorama holds. */
    public enum Extent {
        /** There is none. */
        MISSING,

        /** It ends where a key frame could not be joined, or the wait for it was ended. */
        PARTIAL,

        /** All of it. */
        WHOLE
    }

    private final Extent extent;
    private final Reason why;
    private final int firstFailedKeyFrame;
    private final int keyFrames;
    private final FrameAnswer lastFrame;
    private final byte[] jpeg;
    private final int width;
    private final int height;
    private final byte[] file;

    Panorama(int extent, int why, int firstFailedKeyFrame, int keyFrames, FrameAnswer lastFrame, byte[] jpeg,
            int width, int height, byte[] file) {
        this.extent = Extent.values()[extent];
        this.why = Reason.of(why);
        this.firstFailedKeyFrame = firstFailedKeyFrame;
        this.keyFrames = keyFrames;
        this.lastFrame = lastFrame;
        this.jpeg = jpeg;
        this.width = width;
        this.height = height;
        this.file = file;
    }

    /**
     * How much of the sweep the panorama holds.
     *
     * @return never null
     */
    public Extent extent() {
        return extent;
    }

    /**
     * Whether there is no panorama.
     *
     * @return true if {@link #extent()} is {@link Extent#MISSING}
     */
    public boolean isMissing() {
        return extent == Extent.MISSING;
    }

    /**
     * Why the panorama is not whole.
     *
     * @return {@link Reason#NONE} if it is, or {@link Reason#DISK} where the file in the working directory could not be
     *     written though it is; never null
     */
    public Reason why() {
        return why;
    }

    /**
     * The first key frame that could not be joined. The panorama may go on behind it.
     *
     * @return its number, from 1; 0 if all could
     */
    public int firstFailedKeyFrame() {
        return firstFailedKeyFrame;
    }

    /**
     * How many key frames were given to workers.
     *
     * @return 0 or more
     */
    public int keyFrames() {
        return keyFrames;
    }

    /**
     * What became of the last frame.
     *
     * @return empty if {@link TarnStitch#finish} was called without one; never null
     */
    public Optional<FrameAnswer> lastFrame() {
        return Optional.ofNullable(lastFrame);
    }

    /**
     * The width in pixels.
     *
     * @return 0 if the panorama is missing
     */
    public int width() {
        return width;
    }

    /**
     * The height in pixels.
     *
     * @return 0 if the panorama is missing
     */
    public int height() {
        return height;
    }

    /**
     * The picture as a JPEG file's bytes.
     *
     * @return a new array, never null
     * @throws IllegalStateException if the panorama is missing
     */
    public byte[] toJpeg() {
        return existing().clone();
    }

    /**
     * Writes that JPEG to a file, which appears whole or not at all and replaces one that is there.
     *
     * @param file in the default file system, not null
     * @throws IOException if it cannot be written; a file that was there is untouched then
     * @throws IllegalStateException if the panorama is missing
     * @throws IllegalArgumentException for a path of another file system
     */
    public void writeTo(Path file) throws IOException {
        NativeCalls.write(PathBytes.of(file), existing());
    }

    /** Where the library has written it in the working directory; empty if it has not. */
    byte[] file() {
        return file;
    }

    private byte[] existing() {
        if (isMissing()) {
            throw new IllegalStateException("there is no panorama: " + why.text());
        }
        return jpeg;
    }
}
