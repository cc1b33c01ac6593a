// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

/**
 * What the library says about a frame, and what the user should be told.
 *
 * <p>Where several results fit a frame, the library gives the last one of this list. Immutable; any thread may
 * use it.
 */
public enum FrameResult {
    /** The high-resolution panorama has failed; frames are not taken any more. Start another sweep. */
    FAILED(-1),

    /**
     * Ten or more frames in a row did not fit. Also the answer to a frame that is handed over while another
     * call is still inside the library; then it says nothing about the picture (see {@link TarnStitch}).
     */
    LOST(0),

    /**
     * All is well; or one of the first few frames in a row that did not fit, which is no reason to worry yet.
     */
    NORMAL(1),

    /** The frame fitted, by 20 to 49 points. */
    FEW_DETAILS(2),

    /** The frame fitted, by fewer than 20 points. */
    VERY_FEW_DETAILS(3),

    /** The camera moves against the hint; the frame was not taken. */
    WRONG_WAY(4),

    /** The frame fitted, but the camera has been moving too fast lately. */
    TOO_FAST(5),

    /** The frame fitted, but it is tilted or skewed against the last key frame. */
    SKEWED(6);

    private final int code;

    FrameResult(int code) {
        this.code = code;
    }

    /**
     * The library's number for this result.
     *
     * @return -1 to 6
     */
    public int code() {
        return code;
    }

    /**
     * What the user should be told, in English.
     *
     * @return one or two short sentences; empty for {@link #NORMAL}
     */
    public String userMessage() {
        return Words.sentence(NativeCalls.adviceForCode(code));
    }

    static FrameResult of(int code) {
        for (FrameResult result : values()) {
            if (result.code == code) {
                return result;
            }
        }
        throw new IllegalStateException("the library answered with the unknown code " + code);
    }
}
