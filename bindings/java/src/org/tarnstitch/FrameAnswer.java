// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

/**
 * What became of one frame, in full.
 *
 * <p>Everything counts in the frames' own orientation. Corners come in the order top-left, top-right, bottom-right,
 * bottom-left, sides clockwise from the top. Immutable; any thread may use it.
 */
public final class FrameAnswer {
    private final FrameResult result;
    private final Reason why;
    private final String detail;
    private final boolean taken;
    private final int keyFrame;
    private final int keyFrames;
    private final boolean registered;
    private final Direction direction;
    private final float moveDistance;
    private final int cornersFound;
    private final int cornersTracked;
    private final int inliers;
    private final float overlap;
    private final float[] outline;
    private final float[] angles;
    private final float[] scales;
    private final double milliseconds;

    FrameAnswer(int code, int why, String detail, boolean taken, int keyFrame, int keyFrames, boolean registered,
            int direction, float moveDistance, int cornersFound, int cornersTracked, int inliers, float overlap,
            float[] outline, float[] angles, float[] scales, double milliseconds) {
        this.result = FrameResult.of(code);
        this.why = Reason.of(why);
        this.detail = detail;
        this.taken = taken;
        this.keyFrame = keyFrame;
        this.keyFrames = keyFrames;
        this.registered = registered;
        this.direction = Direction.of(direction);
        this.moveDistance = moveDistance;
        this.cornersFound = cornersFound;
        this.cornersTracked = cornersTracked;
        this.inliers = inliers;
        this.overlap = overlap;
        this.outline = outline;
        this.angles = angles;
        this.scales = scales;
        this.milliseconds = milliseconds;
    }

    /**
     * What the user should be told.
     *
     * @return never null
     */
    public FrameResult result() {
        return result;
    }

    /**
     * Why the frame was not taken.
     *
     * @return {@link Reason#NONE} if it was; never null
     */
    public Reason why() {
        return why;
    }

    /**
     * What OpenCV said of an {@linkplain Reason#UNUSABLE_FRAME unusable frame}.
     *
     * @return empty for any other, never null
     */
    public String detail() {
        return detail;
    }

    /**
     * Whether the panorama and the sweep go on from this frame.
     *
     * @return false for a frame that was dropped
     */
    public boolean isTaken() {
        return taken;
    }

    /**
     * The frame's number among the key frames, which make the high-resolution panorama.
     *
     * @return from 1; 0 if the frame is none
     */
    public int keyFrame() {
        return keyFrame;
    }

    /**
     * How many key frames there have been so far.
     *
     * @return 0 or more
     */
    public int keyFrames() {
        return keyFrames;
    }

    /**
     * Whether the frame was compared with the one taken before it, so that its motion and shape were measured.
     *
     * @return false for the first frame, and for one that has too few details
     */
    public boolean isRegistered() {
        return registered;
    }

    /**
     * The direction of the camera's motion at the frame taken last.
     *
     * @return {@link Direction#NONE} while it is undecided, never null
     */
    public Direction direction() {
        return direction;
    }

    /**
     * How far the camera has moved since the frame taken before.
     *
     * @return in pixels of a frame 300 pixels wide
     */
    public float moveDistance() {
        return moveDistance;
    }

    /**
     * How many corners the frame shows.
     *
     * @return 0 or more
     */
    public int cornersFound() {
        return cornersFound;
    }

    /**
     * How many corners of the frame before were found again.
     *
     * @return 0 or more
     */
    public int cornersTracked() {
        return cornersTracked;
    }

    /**
     * How many of these agree on one motion.
     *
     * @return 0 or more
     */
    public int inliers() {
        return inliers;
    }

    /**
     * The overlap of the frame with the last key frame: the area that both show over the area that either does. A frame
     * of less than 0.7 becomes a key frame.
     *
     * @return 0 to 1
     */
    public float overlap() {
        return overlap;
    }

    /**
     * The corners, in the preview, of the frame taken last: where the camera looks. They may reach beyond the preview
     * until the next key frame.
     *
     * @return x and y of each corner in turn, eight numbers in a new array; none if the frame was not taken or does
     *     not lie in the preview; never null
     */
    public float[] outline() {
        return outline.clone();
    }

    /**
     * The angles at the corners of the frame measured last, as it lies in the last key frame.
     *
     * @return four numbers in degrees in a new array, never null
     */
    public float[] angles() {
        return angles.clone();
    }

    /**
     * The sides of the frame measured last, as it lies in the last key frame, over its own.
     *
     * @return four numbers in a new array, never null
     */
    public float[] scales() {
        return scales.clone();
    }

    /**
     * The time that the library has spent on the frame.
     *
     * @return in milliseconds
     */
    public double milliseconds() {
        return milliseconds;
    }
}
