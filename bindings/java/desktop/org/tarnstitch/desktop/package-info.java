// SPDX-License-Identifier: Apache-2.0
/**
 * Conversions between the library's pictures and those of a desktop's class library. Apart from the core, which
 * has no use for such classes: Android does not have them.
 */
package org.tarnstitch.desktop;
