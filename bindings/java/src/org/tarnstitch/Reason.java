// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

/**
 * Why a frame was not taken, a key frame could not be joined, or a panorama could not be had.
 *
 * <p>Up to {@link #UNUSABLE_FRAME} they are about a frame, in the order in which it is tested; the others are about
 * key frames and panoramas. Immutable; any thread may use it.
 */
public enum Reason {
    /** There is nothing to explain. */
    NONE,

    /** Another call was inside the library. */
    BUSY,

    /** The panorama had failed before. */
    PIPELINE_FAILED,

    /** The frame shows too few corners. */
    TOO_FEW_CORNERS,

    /** Too few corners of the frame before were found again. */
    TOO_FEW_TRACKED,

    /** The frame, compared with the one before, is no plausible view. */
    IMPLAUSIBLE_SHAPE,

    /** Too small a share of the points agrees on one motion. */
    TOO_FEW_INLIERS,

    /** The camera goes against the hint. */
    AGAINST_THE_HINT,

    /** The frame would lie folded in the preview. */
    NOT_CONVEX,

    /** The frame would be far too small or too large in the preview. */
    OUT_OF_SCALE,

    /** The frame could not be read. */
    UNUSABLE_FRAME,

    /** A key frame has too few matches with the one before. */
    TOO_FEW_MATCHES,

    /** The matches of a key frame agree on no motion. */
    NO_HOMOGRAPHY,

    /** A key frame would lie folded in the panorama. */
    SHAPE_REFUSED,

    /** The panorama would become too large. */
    TOO_LARGE,

    /** The workers did not come to their turns in time. */
    TIMED_OUT,

    /** Memory was short. */
    NO_MEMORY,

    /** No thread could be started. */
    NO_THREAD,

    /** A file or directory could not be written. */
    DISK,

    /** The sweep was cancelled, or the wait for it was ended. */
    CANCELLED,

    /** The process ends. */
    PROCESS_ENDS,

    /** No frame was taken that a panorama could be made of. */
    NO_FRAMES;

    /**
     * The library's number for this reason.
     *
     * @return 0 or more
     */
    public int code() {
        return ordinal();
    }

    /**
     * The reason in words, in English.
     *
     * @return a short clause without a capital and a full stop, never null
     */
    public String text() {
        return NativeCalls.nameOfReason(code());
    }

    /**
     * What would help against it, in English.
     *
     * @return a sentence; empty where nothing does
     */
    public String userMessage() {
        return Words.sentence(NativeCalls.adviceForReason(code()));
    }

    static Reason of(int code) {
        return values()[code];
    }
}
