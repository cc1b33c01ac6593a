// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import java.io.IOException;
import java.nio.ByteBuffer;

/**
 * The native half. Its methods may be called from any thread; what they answer to a second thread, TarnStitch
 * says. A sweep is named by a number; a method that is called with the name of one that is over throws
 * IllegalStateException.
 */
final class NativeCalls {
    static {
        NativeLibrary.load();
    }

    private NativeCalls() {}

    /**
     * Begins a sweep and returns its name.
     *
     * @param directory the bytes of its directory's path, none for a private one
     * @param privateParent the same of the directory in which a private one is made
     */
    static native long begin(byte[] directory, byte[] privateParent) throws IOException;

    /** Ends the sweep; does nothing if it is over. */
    static native void cancel(long sweep);

    static native FrameAnswer feed(
            long sweep, ByteBuffer pixels, int width, int height, int rowStride, int format, int hint);

    /** The last frame may be null, and so may {@code progress}. */
    static native Panorama finish(long sweep, ByteBuffer lastFrame, int width, int height, int rowStride, int format,
            int hint, Progress progress);

    static native SweepStatus status(long sweep);

    static native boolean waitForRoom(long sweep, int keyFrames);

    static native Preview preview(long sweep);

    /** The bytes of the path of the sweep's directory. */
    static native byte[] directory(long sweep);

    /** Writes a file that appears whole or not at all. */
    static native void write(byte[] file, byte[] content) throws IOException;

    static native String adviceForCode(int code);

    static native String nameOfDirection(int code);

    static native String nameOfReason(int code);

    static native String adviceForReason(int code);
}
