// SPDX-License-Identifier: Apache-2.0
/**
 * Panorama stitching for camera apps: the library in Java and Kotlin.
 *
 * <p>{@link org.tarnstitch.TarnStitch} is one sweep of the camera, from its first frame to its panorama. The
 * rest are the words in which it is asked and answers. Nothing here needs more than Java 8 and its base
 * classes, so it works on Android as well as on a desktop; conversions from and to desktop images are in a
 * package of their own.
 *
 * <p>No parameter of this package accepts null and no method returns it.
 */
package org.tarnstitch;
