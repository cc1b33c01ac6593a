// SPDX-License-Identifier: Apache-2.0
package androidx.camera.core;

/** Stands in for the camera library's interface of this name. */
public interface ImageInfo {
    int getRotationDegrees();
}
