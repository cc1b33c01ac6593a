// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.awt.image.BufferedImage;
import java.io.ByteArrayInputStream;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.function.Supplier;
import javax.imageio.ImageIO;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** What a sweep tells of its frames, of itself and of its panorama. */
class SweepTest {
    private static final int WIDTH = 320;
    private static final int HEIGHT = 240;
    private static final int STEP = 10;

    private static final int LARGE_WIDTH = 3000;
    private static final int LARGE_HEIGHT = 2000;
    private static final ByteBuffer LARGE = Frames.madeUp(LARGE_WIDTH, LARGE_HEIGHT, 0);

    @TempDir
    Path directory;

    private TarnStitch sweep;

    @BeforeEach
    void begin() throws Exception {
        sweep = TarnStitch.begin(directory);
    }

    @AfterEach
    void end() {
        sweep.close();
    }

    @Test
    void theFirstFrameIsTheFirstKeyFrameAndFillsThePreview() {
        FrameAnswer answer = feed(0);
        assertEquals(FrameResult.NORMAL, answer.result());
        assertEquals(Reason.NONE, answer.why());
        assertEquals("", answer.detail());
        assertTrue(answer.isTaken());
        assertEquals(1, answer.keyFrame());
        assertEquals(1, answer.keyFrames());
        assertFalse(answer.isRegistered());
        assertTrue(answer.milliseconds() > 0);
        assertEquals(1, sweep.status().keyFrames());
        assertFalse(sweep.preview().isFrozen());
    }

    @Test
    void aFrameThatFitsTellsWhatWasMeasured() {
        feed(0);
        FrameAnswer answer = feed(STEP);
        assertTrue(answer.isTaken());
        assertTrue(answer.isRegistered());
        assertEquals(0, answer.keyFrame());
        assertEquals(1, answer.keyFrames());
        // By 10 of 320 pixels, so by 9.4 of 300.
        assertEquals(STEP * 300.0 / WIDTH, answer.moveDistance(), 0.5);
        assertTrue(answer.cornersFound() >= answer.inliers());
        assertTrue(answer.cornersTracked() >= answer.inliers());
        assertTrue(answer.inliers() > 3);
        assertEquals((double) (WIDTH - STEP) / (WIDTH + STEP), answer.overlap(), 0.01);
        float[] square = {0, 0, 300, 0, 300, 225, 0, 225};
        assertEquals(8, answer.outline().length);
        for (int i = 0; i < 8; ++i) {
            double expected = square[i] + (i % 2 == 0 ? STEP * 300.0 / WIDTH : 0);
            assertEquals(expected, answer.outline()[i], 2.0, "number " + i);
        }
        assertArrayEquals(answer.outline(), sweep.preview().outline());
        for (int i = 0; i < 4; ++i) {
            assertEquals(90, answer.angles()[i], 1.0);
            assertEquals(1, answer.scales()[i], 0.02);
        }
        answer.outline()[0] = 1000;
        assertNotEquals(1000, answer.outline()[0]);
    }

    @Test
    void aFrameThatDoesNotFitSaysWhy() {
        feed(0);
        FrameAnswer blank = sweep.feed(
                Frame.rgba(ByteBuffer.allocateDirect(4 * WIDTH * HEIGHT), WIDTH, HEIGHT, 0), Direction.NONE);
        assertEquals(FrameResult.NORMAL, blank.result());
        assertFalse(blank.isTaken());
        assertEquals(Reason.TOO_FEW_CORNERS, blank.why());
        assertEquals(0, blank.outline().length);
        FrameAnswer back = sweep.feed(frame(STEP), Direction.LEFT);
        assertEquals(FrameResult.WRONG_WAY, back.result());
        assertEquals(Reason.AGAINST_THE_HINT, back.why());
        assertFalse(back.isTaken());
    }

    @Test
    void aSweepToTheRightMakesAPanoramaThatIsWholeAndStays() throws Exception {
        int frames = 20;
        for (int i = 0; i < frames; ++i) {
            assertTrue(feed(i * STEP).isTaken());
        }
        assertEquals(Direction.RIGHT, feed(frames * STEP).direction());
        List<Integer> progress = new ArrayList<>();
        Panorama panorama = sweep.finish((done, keyFrames) -> {
            progress.add(done);
            assertTrue(done >= 0 && done <= keyFrames);
            return true;
        });
        isWhole(panorama);
        assertTrue(panorama.keyFrames() > 1);
        assertEquals(sweep.status().keyFrames(), panorama.keyFrames());
        assertFalse(panorama.lastFrame().isPresent());
        for (int i = 1; i < progress.size(); ++i) {
            assertTrue(progress.get(i - 1) <= progress.get(i));
        }
        assertArrayEquals(panorama.toJpeg(), sweep.finish().toJpeg());

        sweep.close();
        Path file = Files.write(directory.resolve("panorama.jpg"), new byte[1]);
        panorama.writeTo(file);
        assertArrayEquals(panorama.toJpeg(), Files.readAllBytes(file));
        assertEquals(1, directory.toFile().list().length);
        BufferedImage image = ImageIO.read(new ByteArrayInputStream(panorama.toJpeg()));
        assertEquals(panorama.width(), image.getWidth());
        assertEquals(panorama.height(), image.getHeight());
        // Turned against the frames: wider than high becomes higher than wide.
        assertTrue(panorama.height() > panorama.width());
    }

    @Test
    void aLastFrameBecomesPartOfThePanorama() {
        feed(0);
        Panorama panorama = sweep.finish(frame(STEP), Direction.NONE, (done, keyFrames) -> true);
        isWhole(panorama);
        assertEquals(2, panorama.keyFrames());
        FrameAnswer last = panorama.lastFrame().get();
        assertTrue(last.isTaken());
        assertEquals(2, last.keyFrame());
    }

    @Test
    void aFrameAfterTheEndGoesOnWithTheSweep() {
        feed(0);
        Panorama early = sweep.finish();
        for (int x = STEP; x <= 20 * STEP; x += STEP) {
            feed(x);
        }
        Panorama late = sweep.finish();
        isWhole(late);
        assertTrue(late.keyFrames() > early.keyFrames());
        assertTrue(late.height() > early.height());
    }

    @Test
    void aSweepWithoutFramesHasNoPanoramaAndSaysSo() {
        Panorama none = sweep.finish();
        assertEquals(Panorama.Extent.MISSING, none.extent());
        assertTrue(none.isMissing());
        assertEquals(Reason.NO_FRAMES, none.why());
        assertEquals(0, none.width());
        assertEquals(0, none.height());
        assertThrows(IllegalStateException.class, none::toJpeg);
        Path file = directory.resolve("panorama.jpg");
        assertThrows(IllegalStateException.class, () -> none.writeTo(file));
        assertFalse(Files.exists(file));
    }

    @Test
    void aFileThatCannotBeWrittenIsReported() {
        feed(0);
        Panorama panorama = sweep.finish();
        Path file = directory.resolve("nowhere/panorama.jpg");
        IOException refusal = assertThrows(IOException.class, () -> panorama.writeTo(file));
        assertTrue(refusal.getMessage().contains(file.toString()), refusal.getMessage());
    }

    @Test
    void theOneWhoLooksAtTheProgressMayEndTheWait() {
        Panorama panorama = finishedEarly(() -> sweep.finish((done, keyFrames) -> false));
        assertEquals(Reason.CANCELLED, panorama.why());
        isWhole(sweep.finish());
    }

    @Test
    void anInterruptEndsTheWaitAndStays() {
        Panorama panorama = finishedEarly(() -> {
            Thread.currentThread().interrupt();
            try {
                return sweep.finish();
            } finally {
                assertTrue(Thread.interrupted());
            }
        });
        assertEquals(Reason.CANCELLED, panorama.why());
        isWhole(sweep.finish());
    }

    @Test
    void whatProgressThrowsLeavesFinishAndTheSweepGoesOn() {
        RuntimeException mine = new RuntimeException("mine");
        RuntimeException thrown = null;
        for (int attempt = 0; thrown == null; ++attempt) {
            assertTrue(attempt < 100, "progress was never told");
            beginWithALargeFrame();
            try {
                sweep.finish((done, keyFrames) -> {
                    throw mine;
                });
            } catch (RuntimeException e) {
                thrown = e;
            }
        }
        assertSame(mine, thrown);
        isWhole(sweep.finish());
    }

    @Test
    void progressMayLookAtTheSweepAndCancelIt() {
        for (int attempt = 0;; ++attempt) {
            assertTrue(attempt < 100, "progress was never told");
            beginWithALargeFrame();
            boolean[] told = {false};
            Panorama panorama = sweep.finish((done, keyFrames) -> {
                told[0] = true;
                assertFalse(sweep.preview().isEmpty());
                assertTrue(sweep.status().pendingKeyFrames() > 0);
                sweep.cancel();
                return true;
            });
            if (told[0]) {
                assertEquals(Reason.CANCELLED, panorama.why());
                assertThrows(IllegalStateException.class, sweep::status);
                assertEquals(0, directory.toFile().list().length);
                return;
            }
        }
    }

    /** Repeats a finish that is ended early until it had something to wait for. */
    private Panorama finishedEarly(Supplier<Panorama> finish) {
        for (int attempt = 0; attempt < 100; ++attempt) {
            beginWithALargeFrame();
            Panorama panorama = finish.get();
            if (panorama.extent() != Panorama.Extent.WHOLE) {
                return panorama;
            }
        }
        throw new AssertionError("there was never anything to wait for");
    }

    /** Another sweep, with a frame that keeps a worker busy for a while. */
    private void beginWithALargeFrame() {
        sweep.close();
        try {
            sweep = TarnStitch.begin(directory);
        } catch (IOException e) {
            throw new AssertionError(e);
        }
        FrameAnswer answer = sweep.feed(Frame.rgba(LARGE, LARGE_WIDTH, LARGE_HEIGHT, 0), Direction.NONE);
        assertEquals(1, answer.keyFrame());
    }

    private void isWhole(Panorama panorama) {
        assertEquals(Panorama.Extent.WHOLE, panorama.extent());
        assertEquals(Reason.NONE, panorama.why());
        assertEquals(0, panorama.firstFailedKeyFrame());
        assertFalse(panorama.isMissing());
        SweepStatus status = sweep.status();
        assertEquals(0, status.pendingKeyFrames());
        assertFalse(status.hasFailed());
        assertEquals(0, status.firstFailedKeyFrame());
        assertEquals(Reason.NONE, status.why());
    }

    private FrameAnswer feed(int x) {
        return sweep.feed(frame(x), Direction.NONE);
    }

    private static Frame frame(int x) {
        return Frame.rgba(Frames.madeUp(WIDTH, HEIGHT, x), WIDTH, HEIGHT, 4 * WIDTH);
    }
}
