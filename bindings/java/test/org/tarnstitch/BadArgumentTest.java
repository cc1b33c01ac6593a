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

/** Each bad argument is answered by an exception with its values, and the library never sees it. */
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
        sweep = TarnStitch.reset(directory.resolve("work"));
    }

    @AfterEach
    void end() {
        assertTrue(sweep.preview().isEmpty());
        assertEquals(0, sweep.pendingKeyFrames());
        sweep.close();
    }

    @Test
    void aBufferThatIsNull() {
        refuses(NullPointerException.class, "rgba is null",
                () -> sweep.stitch(null, WIDTH, HEIGHT, STRIDE, Direction.NONE, false));
    }

    @Test
    void aHintThatIsNull() {
        refuses(NullPointerException.class, "hint is null",
                () -> sweep.stitch(ByteBuffer.allocateDirect(NEEDED), WIDTH, HEIGHT, STRIDE, null, false));
    }

    @Test
    void aDirectoryThatIsNull() {
        refuses(NullPointerException.class, "workingDirectory is null", () -> TarnStitch.reset(null));
    }

    @Test
    void aBufferThatIsNotDirect() {
        String message = "rgba is not a direct buffer; ByteBuffer.allocateDirect makes one";
        refuses(message, ByteBuffer.allocate(NEEDED), WIDTH, HEIGHT, STRIDE);
        refuses(message, ByteBuffer.wrap(new byte[NEEDED]).asReadOnlyBuffer(), WIDTH, HEIGHT, STRIDE);
    }

    @Test
    void aBufferThatIsOneByteTooSmall() {
        refuses("rgba has a capacity of 979 bytes; 20 x 10 pixels with a rowStride of 100 need 980",
                ByteBuffer.allocateDirect(NEEDED - 1), WIDTH, HEIGHT, STRIDE);
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
        refuses("rgba has a capacity of 979 bytes; 20 x 10 pixels with a rowStride of 100 need 980",
                whole.slice(), WIDTH, HEIGHT, STRIDE);
    }

    @Test
    void anEmptyBuffer() {
        refuses("rgba has a capacity of 0 bytes; 1 x 1 pixels with a rowStride of 4 need 4",
                ByteBuffer.allocateDirect(0), 1, 1, 4);
    }

    @Test
    void aSizeBelowOne() {
        ByteBuffer buffer = ByteBuffer.allocateDirect(NEEDED);
        refuses("width is 0 and height is 10; both must be at least 1", buffer, 0, HEIGHT, STRIDE);
        refuses("width is 20 and height is 0; both must be at least 1", buffer, WIDTH, 0, STRIDE);
        refuses("width is -20 and height is 10; both must be at least 1", buffer, -20, HEIGHT, STRIDE);
        refuses("width is 20 and height is -2147483648; both must be at least 1", buffer, WIDTH,
                Integer.MIN_VALUE, STRIDE);
    }

    @Test
    void aRowStrideBelowOneRow() {
        ByteBuffer buffer = ByteBuffer.allocateDirect(NEEDED);
        refuses("rowStride is 79; a row of 20 pixels has 80 bytes", buffer, WIDTH, HEIGHT, 79);
        refuses("rowStride is 0; a row of 20 pixels has 80 bytes", buffer, WIDTH, HEIGHT, 0);
        refuses("rowStride is -100; a row of 20 pixels has 80 bytes", buffer, WIDTH, HEIGHT, -100);
    }

    @Test
    void sizesWhoseProductsDoNotFitIntoAnInt() {
        ByteBuffer buffer = ByteBuffer.allocateDirect(NEEDED);
        refuses("rowStride is 2147483647; a row of 2147483647 pixels has 8589934588 bytes", buffer,
                Integer.MAX_VALUE, 1, Integer.MAX_VALUE);
        refuses("rgba has a capacity of 980 bytes; 1 x 2147483647 pixels with a rowStride of 2147483647 need "
                        + "4611686011984936966",
                buffer, 1, Integer.MAX_VALUE, Integer.MAX_VALUE);
        // 65536 * 65536 is 0 in 32 bits.
        refuses("rgba has a capacity of 980 bytes; 16384 x 65537 pixels with a rowStride of 65536 need "
                        + "4295032832",
                buffer, 16384, 65537, 65536);
    }

    @Test
    void aCodeThatIsNoDirection() {
        ByteBuffer buffer = ByteBuffer.allocateDirect(NEEDED);
        refuses(IllegalArgumentException.class, "hint is 5; directions have the codes 0 to 4",
                () -> NativeCalls.stitch(1, buffer, WIDTH, HEIGHT, STRIDE, 5, false));
        refuses(IllegalArgumentException.class, "hint is -1; directions have the codes 0 to 4",
                () -> NativeCalls.stitch(1, buffer, WIDTH, HEIGHT, STRIDE, -1, false));
    }

    @Test
    void aPathThatTheLibraryWouldMisread() {
        refuses(NullPointerException.class, "the path is null", () -> NativeCalls.reset(null));
        refuses(IllegalArgumentException.class, "the path \"/tmp\" does not end in \"/\"",
                () -> NativeCalls.reset("/tmp".getBytes("US-ASCII")));
        refuses(IllegalArgumentException.class, "the path \"/tmp\" has a zero byte at index 4",
                () -> NativeCalls.reset("/tmp\0/".getBytes("US-ASCII")));
        refuses(IllegalArgumentException.class, "the path \"/tm??\" does not end in \"/\"",
                () -> NativeCalls.reset("/tm\u00fc".getBytes("UTF-8")));
    }

    @Test
    void aSizeArrayThatTheLibraryCannotFill() {
        refuses(NullPointerException.class, "size is null", () -> NativeCalls.preview(1, null));
        refuses(IllegalArgumentException.class, "size has a length of 1 instead of 2",
                () -> NativeCalls.preview(1, new int[1]));
    }

    @Test
    void aNegativeNumberOfKeyFrames() {
        refuses(IllegalArgumentException.class, "keyFrames is -1; it must be at least 0",
                () -> sweep.holdBack(-1));
    }

    private void refuses(String message, ByteBuffer rgba, int width, int height, int rowStride) {
        refuses(IllegalArgumentException.class, message,
                () -> sweep.stitch(rgba, width, height, rowStride, Direction.NONE, false));
        refuses(IllegalArgumentException.class, message,
                () -> sweep.stitch(rgba, width, height, rowStride, Direction.NONE, true));
    }

    private static void refuses(Class<? extends Exception> type, String message, Executable call) {
        assertEquals(message, assertThrows(type, call).getMessage());
    }
}
