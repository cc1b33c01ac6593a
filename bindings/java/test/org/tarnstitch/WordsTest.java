// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;

import java.util.Arrays;
import org.junit.jupiter.api.Test;

/** The codes and the directions. */
class WordsTest {
    @Test
    void everyCodeOfTheLibraryIsAResultAndNoOtherIs() {
        FrameResult[] expected = {
            FrameResult.FAILED, FrameResult.LOST, FrameResult.NORMAL, FrameResult.FEW_DETAILS,
            FrameResult.VERY_FEW_DETAILS, FrameResult.WRONG_WAY, FrameResult.TOO_FAST, FrameResult.SKEWED,
        };
        for (int code = -1; code <= 6; ++code) {
            assertEquals(expected[code + 1], FrameResult.of(code));
            assertEquals(code, FrameResult.of(code).code());
        }
        assertEquals(8, FrameResult.values().length);
        assertThrows(IllegalStateException.class, () -> FrameResult.of(-2));
        assertThrows(IllegalStateException.class, () -> FrameResult.of(7));
    }

    @Test
    void theUserIsToldSomethingForEveryResultButNormalAndForEveryDirection() {
        for (FrameResult result : FrameResult.values()) {
            assertEquals(result == FrameResult.NORMAL, result.userMessage().isEmpty());
        }
        for (Direction direction : Direction.values()) {
            assertFalse(direction.userMessage().isEmpty());
        }
    }

    @Test
    void directionsHaveTheLibrarysCodes() {
        assertEquals(0, Direction.NONE.code());
        assertEquals(1, Direction.DOWN.code());
        assertEquals(2, Direction.UP.code());
        assertEquals(3, Direction.RIGHT.code());
        assertEquals(4, Direction.LEFT.code());
    }

    @Test
    void turningAFrameUprightTakesTheHintBackToWhatTheUserSees() {
        // Turned clockwise by 90 degrees, up becomes right, right becomes down, and so on.
        Direction[] clockwise = {Direction.UP, Direction.RIGHT, Direction.DOWN, Direction.LEFT};
        for (int seen = 0; seen < 4; ++seen) {
            for (int quarterTurns = 0; quarterTurns < 4; ++quarterTurns) {
                Direction inFrames = clockwise[seen].inFrames(90 * quarterTurns);
                int before = Arrays.asList(clockwise).indexOf(inFrames);
                assertEquals(seen, (before + quarterTurns) % 4);
            }
        }
    }

    @Test
    void noDirectionStaysNoneHoweverTheFrameIsTurned() {
        for (int degrees = 0; degrees < 360; degrees += 90) {
            assertEquals(Direction.NONE, Direction.NONE.inFrames(degrees));
        }
    }

    @Test
    void anglesOtherThanQuarterTurnsAreRefused() {
        for (int degrees : new int[] {-90, 1, 360}) {
            IllegalArgumentException refusal =
                    assertThrows(IllegalArgumentException.class, () -> Direction.UP.inFrames(degrees));
            assertEquals(
                    "rotationDegrees is " + degrees + "; it must be 0, 90, 180 or 270", refusal.getMessage());
        }
    }
}
