// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.ByteBuffer;
import java.nio.file.Path;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;
import org.junit.jupiter.api.io.TempDir;

/** One sweep after another, and the objects of those that are over. */
class LifeCycleTest {
    private static final String OVER = "this sweep is over: it was ended, or another one was begun after it";

    @TempDir
    Path directory;

    @Test
    void aSweepStartsEmpty() throws Exception {
        try (TarnStitch sweep = TarnStitch.reset(directory.resolve("work"))) {
            assertTrue(sweep.preview().isEmpty());
            assertEquals(0, sweep.preview().width());
            assertEquals(0, sweep.preview().height());
            assertEquals(0, sweep.preview().pixels().length);
            assertFalse(sweep.panorama().isPresent());
            assertEquals(0, sweep.pendingKeyFrames());
            assertTrue(sweep.holdBack(0));
        }
    }

    @Test
    void afterTheEndEveryCallButCloseIsRefused() throws Exception {
        TarnStitch sweep = TarnStitch.reset(directory.resolve("work"));
        sweep.close();
        sweep.close();
        sweep.cancel();
        isOver(sweep);
    }

    @Test
    void aNewSweepEndsTheOneBeforeAndItsCloseTouchesNothing() throws Exception {
        TarnStitch old = TarnStitch.reset(directory.resolve("work"));
        try (TarnStitch sweep = TarnStitch.reset(directory.resolve("work"))) {
            isOver(old);
            old.close();
            assertEquals(FrameResult.NORMAL,
                    sweep.stitch(Frames.madeUp(320, 240, 0), 320, 240, 1280, Direction.NONE, false));
            assertFalse(sweep.preview().isEmpty());
        }
    }

    @Test
    void nothingOfOneSweepShowsInTheNext() throws Exception {
        TarnStitch first = TarnStitch.reset(directory.resolve("work"));
        first.stitch(Frames.madeUp(320, 240, 0), 320, 240, 1280, Direction.NONE, false);
        first.stitch(Frames.madeUp(320, 240, 16), 320, 240, 1280, Direction.NONE, true);
        assertTrue(first.panorama().isPresent());
        try (TarnStitch second = TarnStitch.reset(directory.resolve("work"))) {
            assertTrue(second.preview().isEmpty());
            assertFalse(second.panorama().isPresent());
            assertEquals(0, second.pendingKeyFrames());
        }
    }

    @Test
    void aPreviewIsACopyThatLaterFramesAndSweepsLeaveAlone() throws Exception {
        TarnStitch sweep = TarnStitch.reset(directory.resolve("work"));
        sweep.stitch(Frames.madeUp(320, 240, 0), 320, 240, 1280, Direction.NONE, false);
        Preview early = sweep.preview();
        int[] before = early.pixels().clone();
        assertEquals(300, early.width());
        assertEquals(225, early.height());
        sweep.preview().pixels()[0] = 0;
        for (int x = 8; x <= 160; x += 8) {
            sweep.stitch(Frames.madeUp(320, 240, x), 320, 240, 1280, Direction.NONE, false);
        }
        assertTrue(sweep.preview().width() > 300);
        sweep.close();
        assertArrayEquals(before, early.pixels());
    }

    @Test
    void theHintDecidesWhichWayIsWrong() throws Exception {
        assertEquals(FrameResult.WRONG_WAY, secondOfTwoFramesToTheRight(Direction.LEFT));
        assertTrue(secondOfTwoFramesToTheRight(Direction.RIGHT) != FrameResult.WRONG_WAY);
        assertTrue(secondOfTwoFramesToTheRight(Direction.NONE) != FrameResult.WRONG_WAY);
        assertTrue(secondOfTwoFramesToTheRight(Direction.UP) != FrameResult.WRONG_WAY);
    }

    @Test
    void tenFramesWithoutDetailAreAnsweredLost() throws Exception {
        ByteBuffer blank = ByteBuffer.allocateDirect(4 * 320 * 240);
        try (TarnStitch sweep = TarnStitch.reset(directory.resolve("work"))) {
            for (int i = 1; i <= 12; ++i) {
                FrameResult result = sweep.stitch(blank, 320, 240, 1280, Direction.NONE, false);
                assertEquals(i < 10 ? FrameResult.NORMAL : FrameResult.LOST, result, "frame " + i);
            }
        }
    }

    private FrameResult secondOfTwoFramesToTheRight(Direction hint) throws Exception {
        try (TarnStitch sweep = TarnStitch.reset(directory.resolve("work"))) {
            sweep.stitch(Frames.madeUp(320, 240, 0), 320, 240, 1280, hint, false);
            return sweep.stitch(Frames.madeUp(320, 240, 12), 320, 240, 1280, hint, false);
        }
    }

    private static void isOver(TarnStitch sweep) {
        ByteBuffer frame = ByteBuffer.allocateDirect(4);
        Executable[] calls = {
            () -> sweep.stitch(frame, 1, 1, 4, Direction.NONE, false),
            () -> sweep.stitch(frame, 1, 1, 4, Direction.NONE, true),
            sweep::preview,
            sweep::panorama,
            sweep::pendingKeyFrames,
            sweep::status,
            sweep::finish,
            () -> sweep.finish((done, keyFrames) -> true),
            () -> sweep.feed(Frame.rgba(frame, 1, 1, 4), Direction.NONE),
            () -> sweep.holdBack(0),
        };
        for (Executable call : calls) {
            assertEquals(OVER, assertThrows(IllegalStateException.class, call).getMessage());
        }
    }
}
