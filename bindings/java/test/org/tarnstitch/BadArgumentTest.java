// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.ByteBuffer;
import java.nio.file.Path;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;
import org.junit.jupiter.api.io.TempDir;

/** Each bad argument is answered by an exception with its values, and no frame is taken. */
class BadArgumentTest {
    private static final int WIDTH = 20;
    private static final int HEIGHT = 10;
    private static final int STRIDE = 100;
    private static final int NEEDED = 9 * STRIDE + 4 * WIDTH;

    @TempDir
    Path directory;

    private TarnStitch sweep;

    @BeforeEach
    void begin() throws Exception {
        sweep = TarnStitch.begin(directory);
    }

    @AfterEach
    void end() {
        assertTrue(sweep.preview().isEmpty());
        assertEquals(0, sweep.pendingKeyFrames());
        sweep.close();
    }

    @Test
    void argumentsThatAreNull() {
        ByteBuffer buffer = ByteBuffer.allocateDirect(NEEDED);
        Frame frame = Frame.rgba(buffer, WIDTH, HEIGHT, STRIDE);
        Progress progress = (done, all) -> true;
        isNull("the buffer of the frame", () -> Frame.gray(null, WIDTH, HEIGHT, STRIDE));
        isNull("the buffer of the frame",
                () -> sweep.stitch(null, WIDTH, HEIGHT, STRIDE, Direction.NONE, false));
        isNull("hint", () -> sweep.stitch(buffer, WIDTH, HEIGHT, STRIDE, null, false));
        isNull("hint", () -> sweep.stitch(buffer, WIDTH, HEIGHT, STRIDE, null, true));
        isNull("frame", () -> sweep.feed(null, Direction.NONE));
        isNull("hint", () -> sweep.feed(frame, null));
        isNull("progress", () -> sweep.finish(null));
        isNull("lastFrame", () -> sweep.finish(null, Direction.NONE, progress));
        isNull("hint", () -> sweep.finish(frame, null, progress));
        isNull("progress", () -> sweep.finish(frame, Direction.NONE, null));
        isNull("workingDirectory", () -> TarnStitch.reset(null));
        isNull("parent", () -> TarnStitch.begin(null));
        isNull("directory", () -> NativeCalls.begin(null, new byte[0]));
        isNull("content", () -> NativeCalls.write(new byte[1], null));
    }

    @Test
    void aBufferThatIsNotDirect() {
        String message = "the frame's buffer is not direct; ByteBuffer.allocateDirect makes one";
        refuses(message, ByteBuffer.allocate(NEEDED), WIDTH, HEIGHT, STRIDE);
        refuses(message, ByteBuffer.wrap(new byte[NEEDED]).asReadOnlyBuffer(), WIDTH, HEIGHT, STRIDE);
    }

    @Test
    void aBufferThatIsOneByteTooSmall() {
        refuses("the frame's buffer has a capacity of 979 bytes; the frame has 980",
                ByteBuffer.allocateDirect(NEEDED - 1), WIDTH, HEIGHT, STRIDE);
        refuses("the frame's buffer has a capacity of 799 bytes; the frame has 800",
                ByteBuffer.allocateDirect(799), WIDTH, HEIGHT, 0);
        ByteBuffer small = ByteBuffer.allocateDirect(199);
        Frame[] frames = {Frame.gray(small, 20, 10, 0), Frame.bgr(small, 6, 11, 19), Frame.bgra(small, 5, 10, 20)};
        for (Frame frame : frames) {
            assertThrows(IllegalArgumentException.class, () -> sweep.feed(frame, Direction.NONE));
        }
    }

    @Test
    void aBufferOfExactlyTheRightSizeIsTakenThoughItsLastRowHasNoPadding() {
        // Black: nothing to track, but taken by the library.
        ByteBuffer exact = ByteBuffer.allocateDirect(NEEDED);
        assertEquals(FrameResult.NORMAL, sweep.stitch(exact, WIDTH, HEIGHT, STRIDE, Direction.NONE, false));
    }

    @Test
    void aCapacityCountsFromTheStartOfASlice() {
        ByteBuffer whole = ByteBuffer.allocateDirect(NEEDED + 10);
        whole.position(11);
        refuses("the frame's buffer has a capacity of 979 bytes; the frame has 980", whole.slice(), WIDTH, HEIGHT,
                STRIDE);
    }

    @Test
    void anEmptyBuffer() {
        ByteBuffer empty = ByteBuffer.allocateDirect(0);
        assertThrows(IllegalArgumentException.class,
                () -> sweep.stitch(empty, 1, 1, 4, Direction.NONE, false));
    }

    @Test
    void sizesOutOfTheirRanges() {
        ByteBuffer buffer = ByteBuffer.allocateDirect(NEEDED);
        refuses("the frame's width is 0; it must be 1 to 16384", buffer, 0, HEIGHT, STRIDE);
        refuses("the frame's height is -1; it must be 1 to 16384", buffer, WIDTH, -1, STRIDE);
        refuses("the frame's height is -2147483648; it must be 1 to 16384", buffer, WIDTH, Integer.MIN_VALUE,
                STRIDE);
        refuses("the frame's width is 2147483647; it must be 1 to 16384", buffer, Integer.MAX_VALUE, 1,
                Integer.MAX_VALUE);
        refuses("the frame's row_stride is 79; a row has 80 bytes", buffer, WIDTH, HEIGHT, 79);
        refuses("the frame's row_stride is -100; it must be at least 0", buffer, WIDTH, HEIGHT, -100);
        // 65536 * 16384 and more do not fit into 32 bits.
        refuses("the frame's buffer has a capacity of 980 bytes; the frame has 1073741824", buffer, 16384, 16384,
                65536);
        refuses("the frame's buffer has a capacity of 980 bytes; the frame has 35182224572422", buffer, 1, 16384,
                Integer.MAX_VALUE - 1);
    }

    @Test
    void aCodeThatIsNoDirectionAndAFormatThatThereIsNot() {
        ByteBuffer buffer = ByteBuffer.allocateDirect(NEEDED);
        long name = sweep.name();
        refuses(IllegalArgumentException.class, "the hint is 5; it must be 0 to 4",
                () -> NativeCalls.feed(name, buffer, WIDTH, HEIGHT, STRIDE, 1, 5));
        refuses(IllegalArgumentException.class, "the hint is -1; it must be 0 to 4",
                () -> NativeCalls.finish(name, buffer, WIDTH, HEIGHT, STRIDE, 1, -1, null));
        refuses(IllegalArgumentException.class, "the frame's format is 5, which there is not",
                () -> NativeCalls.feed(name, buffer, WIDTH, HEIGHT, STRIDE, 5, 0));
    }

    @Test
    void aNegativeNumberOfKeyFrames() {
        assertThrows(IllegalArgumentException.class, () -> sweep.holdBack(-1));
    }

    private void refuses(String message, ByteBuffer rgba, int width, int height, int rowStride) {
        refuses(IllegalArgumentException.class, message,
                () -> sweep.stitch(rgba, width, height, rowStride, Direction.NONE, false));
        refuses(IllegalArgumentException.class, message,
                () -> sweep.stitch(rgba, width, height, rowStride, Direction.NONE, true));
    }

    private static void isNull(String name, Executable call) {
        refuses(NullPointerException.class, name + " is null", call);
    }

    private static void refuses(Class<? extends Exception> type, String message, Executable call) {
        assertEquals(message, assertThrows(type, call).getMessage());
    }
}
