// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

/**
 * The way in which the camera is meant to move: the hint that comes with each frame.
 *
 * <p>The hint counts in the coordinates of the frames as they are handed over. Camera frames often lie on their
 * side: {@link #inFrames(int)} translates what the user is asked to do into the hint for such frames.
 * Immutable; any thread may use it.
 */
public enum Direction {
    /** No preference: any motion is welcome. */
    NONE(0),

    /** Towards the bottom of the frame. */
    DOWN(1),

    /** Towards the top of the frame. */
    UP(2),

    /** Towards the right edge of the frame. */
    RIGHT(3),

    /** Towards the left edge of the frame. */
    LEFT(4);

    private final int code;

    Direction(int code) {
        this.code = code;
    }

    /**
     * The library's number for this direction.
     *
     * @return 0 to 4
     */
    public int code() {
        return code;
    }

    /**
     * What the user should be told to do when this is the direction on the screen, in English.
     *
     * @return one short sentence
     */
    public String userMessage() {
        return "Move the camera slowly " + (this == NONE ? "and evenly" : NativeCalls.nameOfDirection(code)) + ".";
    }

    /**
     * This direction, meant on the upright picture that the user sees, in frames that are not upright.
     *
     * @param rotationDegrees by how much the frames would have to be turned clockwise to be upright: 0, 90, 180
     *     or 270; the usual rear camera of a device held upright needs 90
     * @return the direction to hint
     * @throws IllegalArgumentException for another angle
     */
    public Direction inFrames(int rotationDegrees) {
        switch (rotationDegrees) {
            case 0:
                return this;
            case 90:
                return quarterTurnCounterClockwise();
            case 180:
                return inFrames(90).inFrames(90);
            case 270:
                return inFrames(180).inFrames(90);
            default:
                throw new IllegalArgumentException(
                        "rotationDegrees is " + rotationDegrees + "; it must be 0, 90, 180 or 270");
        }
    }

    static Direction of(int code) {
        return values()[code];
    }

    private Direction quarterTurnCounterClockwise() {
        switch (this) {
            case RIGHT:
                return UP;
            case UP:
                return LEFT;
            case LEFT:
                return DOWN;
            case DOWN:
                return RIGHT;
            default:
                return NONE;
        }
    }
}
