// SPDX-License-Identifier: Apache-2.0
package androidx.camera.core;

import java.nio.ByteBuffer;

/** Stands in for the camera library's interface of this name. */
public interface ImageProxy extends AutoCloseable {
    interface PlaneProxy {
        int getRowStride();

        int getPixelStride();

        ByteBuffer getBuffer();
    }

    int getWidth();

    int getHeight();

    PlaneProxy[] getPlanes();

    ImageInfo getImageInfo();

    @Override
    void close();
}
