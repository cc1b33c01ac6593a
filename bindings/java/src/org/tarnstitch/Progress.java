// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

/** Is told how far a panorama is. */
@FunctionalInterface
public interface Progress {
    /**
     * Called again and again while {@link TarnStitch#finish} waits, on the thread of that call. What it throws leaves
     * {@code finish}; the sweep goes on.
     *
     * @param done key frames that are through, 0 or more
     * @param keyFrames key frames of the sweep
     * @return false to end the wait: what there is by then is the panorama
     */
    boolean onProgress(int done, int keyFrames);
}
