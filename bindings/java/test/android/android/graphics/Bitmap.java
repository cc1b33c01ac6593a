// SPDX-License-Identifier: Apache-2.0
package android.graphics;

/** Stands in for the platform's class of this name, with its signatures, so that the sample can be run. */
public final class Bitmap {
    public enum Config { ARGB_8888 }

    public final int[] colors;
    public final int width;
    public final int height;

    private Bitmap(int[] colors, int width, int height) {
        this.colors = colors;
        this.width = width;
        this.height = height;
    }

    public static Bitmap createBitmap(int[] colors, int width, int height, Config config) {
        if (config == null || width <= 0 || height <= 0 || colors.length < width * height) {
            throw new IllegalArgumentException(width + " x " + height + " in " + colors.length);
        }
        return new Bitmap(colors.clone(), width, height);
    }
}
