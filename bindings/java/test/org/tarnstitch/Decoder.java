// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import java.io.BufferedInputStream;
import java.io.DataInputStream;
import java.io.EOFException;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.util.Arrays;

/** The frames of a sample video, from the decoder that feeds the C++ host. */
final class Decoder implements AutoCloseable {
    final int width;
    final int height;

    private final Process process;
    private final DataInputStream input;
    private byte[] next;

    Decoder(String video) throws IOException {
        process = new ProcessBuilder(Setup.REFERENCE_HOST, "frames", Setup.SAMPLES.resolve(video).toString())
                .redirectError(ProcessBuilder.Redirect.INHERIT)
                .start();
        input = new DataInputStream(new BufferedInputStream(process.getInputStream(), 1 << 20));
        width = input.readInt();
        height = input.readInt();
        next = read();
    }

    boolean hasNext() {
        return next != null;
    }

    /** The next frame, R,G,B,A, row by row without padding. */
    byte[] next() throws IOException {
        byte[] frame = next;
        next = read();
        return frame;
    }

    private byte[] read() throws IOException {
        byte[] frame = new byte[4 * width * height];
        try {
            input.readFully(frame);
        } catch (EOFException end) {
            return null;
        }
        return frame;
    }

    /**
     * Puts a frame into a buffer whose rows lie {@code rowStride} bytes apart, as a camera does: with rubbish
     * behind the rows, and none behind the last one.
     */
    ByteBuffer padded(byte[] frame, int rowStride) {
        int row = 4 * width;
        ByteBuffer buffer = ByteBuffer.allocateDirect(rowStride * (height - 1) + row);
        byte[] rubbish = new byte[rowStride - row];
        Arrays.fill(rubbish, (byte) 0xA5);
        for (int y = 0; y < height; ++y) {
            buffer.put(frame, y * row, row);
            if (y < height - 1) {
                buffer.put(rubbish);
            }
        }
        return buffer;
    }

    @Override
    public void close() throws IOException {
        input.close();
        process.destroy();
    }
}
