// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import java.nio.ByteBuffer;

/**
 * The native half. Its methods check every argument themselves and may be called from any thread; what they
 * answer to a second thread, TarnStitch says. A sweep is named by a number, which is never 0; a method that is
 * called with the name of a sweep that is over throws IllegalStateException.
 */
final class NativeCalls {
    static {
        NativeLibrary.load();
    }

    private NativeCalls() {}

    /**
     * Starts a sweep.
     *
     * @param directory the bytes of the path of an existing directory, with a "/" at the end; none for a sweep
     *     without files
     * @return its name; 0 when the library cannot enter the directory, and the sweep before goes on
     */
    static native long reset(byte[] directory);

    /** Ends the sweep and removes its directory; does nothing if it is over. */
    static native void close(long sweep);

    /** Registers a frame and returns the library's code. */
    static native int stitch(
            long sweep, ByteBuffer rgba, int width, int height, int rowStride, int hint, boolean last);

    /** The preview's pixels; its width and height are stored in {@code size}. */
    static native int[] preview(long sweep, int[] size);

    /** The bytes of the finished panorama's path, none if there is none. */
    static native byte[] panorama(long sweep);

    /** Key frames handed to workers that are not done with them. */
    static native int pendingKeyFrames(long sweep);
}
