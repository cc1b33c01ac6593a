// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

/** Where a sweep stands. Immutable; any thread may use it. */
public final class SweepStatus {
    private final int keyFrames;
    private final int pendingKeyFrames;
    private final boolean failed;
    private final int firstFailedKeyFrame;
    private final Reason why;

    SweepStatus(int keyFrames, int pendingKeyFrames, boolean failed, int firstFailedKeyFrame, int why) {
        this.keyFrames = keyFrames;
        this.pendingKeyFrames = pendingKeyFrames;
        this.failed = failed;
        this.firstFailedKeyFrame = firstFailedKeyFrame;
        this.why = Reason.of(why);
    }

    /**
     * How many key frames were given to workers so far.
     *
     * @return 0 or more
     */
    public int keyFrames() {
        return keyFrames;
    }

    /**
     * How many of them the workers have still to do.
     *
     * @return 0 or more
     */
    public int pendingKeyFrames() {
        return pendingKeyFrames;
    }

    /**
     * Whether the panorama has failed: frames are not taken any more.
     *
     * @return true if so
     */
    public boolean hasFailed() {
        return failed;
    }

    /**
     * The first key frame that could not be joined.
     *
     * @return its number, from 1; 0 if all could
     */
    public int firstFailedKeyFrame() {
        return firstFailedKeyFrame;
    }

    /**
     * Why it could not.
     *
     * @return never null
     */
    public Reason why() {
        return why;
    }
}
