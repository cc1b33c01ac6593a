// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.ByteBuffer;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.Callable;
import java.util.concurrent.ExecutionException;
import java.util.concurrent.FutureTask;
import java.util.concurrent.atomic.AtomicReference;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** What a second thread is answered while the first one is inside the library. */
class ThreadTest {
    /** Large, so that the library is busy with one for many times longer than a call takes. */
    private static final int LARGE_WIDTH = 6000;

    private static final int LARGE_HEIGHT = 4000;
    private static final ByteBuffer LARGE = Frames.madeUp(LARGE_WIDTH, LARGE_HEIGHT, 0);
    private static final ByteBuffer SMALL = Frames.madeUp(320, 240, 0);

    @TempDir
    Path directory;

    @Test
    void aFrameIsAnsweredBusyAtOnceWhileAnotherOneIsInside() throws Exception {
        FrameResult answer = FrameResult.NORMAL;
        // The first call may be over before the second one begins; then the next sweep tries again. In two
        // frames nobody is rejected ten times: the code can only mean that the library is busy.
        for (int attempt = 0; attempt < 100 && answer != FrameResult.LOST; ++attempt) {
            try (TarnStitch sweep = begin()) {
                Call<FrameResult> first = new Call<>(() -> stitchLarge(sweep, false));
                first.awaitInside();
                answer = stitchSmall(sweep, false);
                assertEquals(FrameResult.NORMAL, answer == FrameResult.LOST ? first.get() : answer);
            }
        }
        assertEquals(FrameResult.LOST, answer);
    }

    @Test
    void theLastFrameWaitsForTheOneInside() throws Exception {
        try (TarnStitch sweep = begin()) {
            Call<FrameResult> first = new Call<>(() -> stitchLarge(sweep, false));
            first.awaitInside();
            FrameResult answer = stitchSmall(sweep, true);
            assertTrue(answer == FrameResult.NORMAL || answer == FrameResult.FAILED, answer.toString());
            first.get();
        }
    }

    @Test
    void viewsAreAnsweredWhileAFrameIsInside() throws Exception {
        try (TarnStitch sweep = begin()) {
            Call<FrameResult> last = new Call<>(() -> stitchLarge(sweep, true));
            last.awaitInside();
            assertTrue(sweep.preview().isEmpty());
            assertTrue(sweep.pendingKeyFrames() >= 0);
            last.get();
        }
    }

    @Test
    void closingInterruptsTheWaitForThePanorama() throws Exception {
        TarnStitch sweep = begin();
        Call<FrameResult> last = new Call<>(() -> stitchLarge(sweep, true));
        last.awaitInside();
        sweep.close();
        try {
            last.get();
        } catch (ExecutionException e) {
            // It was about to go in.
            assertTrue(e.getCause() instanceof IllegalStateException, e.toString());
        }
        assertThrows(IllegalStateException.class, sweep::panorama);
        assertEquals(0, directory.toFile().list().length);
    }

    @Test
    void aNewSweepStartsCleanWhileTheOldOneIsInside() throws Exception {
        TarnStitch old = begin();
        Call<FrameResult> last = new Call<>(() -> stitchLarge(old, true));
        last.awaitInside();
        try (TarnStitch sweep = begin()) {
            assertTrue(sweep.preview().isEmpty());
            assertEquals(0, sweep.pendingKeyFrames());
            assertEquals(FrameResult.NORMAL, stitchSmall(sweep, true));
            assertTrue(sweep.panorama().isPresent());
        }
    }

    @Test
    void anInterruptEndsHoldBack() throws Exception {
        boolean interrupted = false;
        for (int sweeps = 0; !interrupted; ++sweeps) {
            assertTrue(sweeps < 100, "an interrupt that nobody minds");
            try (TarnStitch sweep = begin()) {
                stitchLarge(sweep, false);
                Thread.currentThread().interrupt();
                sweep.holdBack(0); // returns only if the key frame was through before
            } catch (InterruptedException expected) {
                interrupted = true;
            } finally {
                Thread.interrupted();
            }
        }
    }

    @Test
    void manyThreadsAtOnceGetAnswersOrAreToldThatTheirSweepIsOver() throws Exception {
        AtomicReference<TarnStitch> current = new AtomicReference<>(begin());
        List<Call<Void>> calls = new ArrayList<>();
        for (int t = 0; t < 2; ++t) {
            calls.add(new Call<>(() -> repeat(400, i -> stitchSmall(current.get(), i % 20 == 19))));
        }
        calls.add(new Call<>(() -> repeat(2000, i -> {
            Preview preview = current.get().preview();
            assertEquals(preview.width() * preview.height(), preview.pixels().length);
        })));
        calls.add(new Call<>(() -> repeat(2000, i -> {
            current.get().panorama();
            assertTrue(current.get().pendingKeyFrames() >= 0);
        })));
        calls.add(new Call<>(() -> repeat(40, i -> current.set(begin()))));
        for (Call<Void> call : calls) {
            call.get();
        }
        current.get().close();
    }

    private interface Step {
        void run(int i) throws Exception;
    }

    private static Void repeat(int times, Step step) throws Exception {
        for (int i = 0; i < times; ++i) {
            try {
                step.run(i);
            } catch (IllegalStateException replaced) {
                assertTrue(replaced.getMessage().startsWith("this sweep is over"), replaced.toString());
            }
        }
        return null;
    }

    private TarnStitch begin() throws Exception {
        return TarnStitch.reset(directory.resolve("work"));
    }

    private static FrameResult stitchLarge(TarnStitch sweep, boolean last) {
        return sweep.stitch(LARGE, LARGE_WIDTH, LARGE_HEIGHT, 4 * LARGE_WIDTH, Direction.NONE, last);
    }

    private static FrameResult stitchSmall(TarnStitch sweep, boolean last) {
        return sweep.stitch(SMALL, 320, 240, 1280, Direction.NONE, last);
    }

    /** A call on a thread of its own. */
    private static final class Call<T> {
        private final FutureTask<T> task;
        private final Thread thread;

        Call(Callable<T> body) {
            task = new FutureTask<>(body);
            thread = new Thread(task);
            thread.start();
        }

        boolean isAlive() {
            return thread.isAlive();
        }

        /** Returns when the thread is in native code, or has been. */
        void awaitInside() {
            while (thread.isAlive()) {
                for (StackTraceElement frame : thread.getStackTrace()) {
                    if (frame.getClassName().equals("org.tarnstitch.NativeCalls") && frame.isNativeMethod()) {
                        return;
                    }
                }
            }
        }

        T get() throws InterruptedException, ExecutionException {
            return task.get();
        }
    }
}
