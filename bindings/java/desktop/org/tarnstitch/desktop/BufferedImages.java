// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch.desktop;

import java.awt.image.BufferedImage;
import java.nio.ByteBuffer;
import org.tarnstitch.Preview;

/** Frames from images, and images from previews. Its methods keep nothing and may be called from any thread. */
public final class BufferedImages {
    private BufferedImages() {}

    /**
     * An image as the pixels of a frame for {@link org.tarnstitch.Frame#rgba}.
     *
     * @param image of any type, not null
     * @return a new direct buffer with the pixels as red, green, blue, alpha, row by row from the top; never
     *     null. The row stride is {@code 4 * image.getWidth()}
     */
    public static ByteBuffer toFrame(BufferedImage image) {
        int width = image.getWidth();
        int pixels = Math.multiplyExact(width, image.getHeight());
        ByteBuffer rgba = ByteBuffer.allocateDirect(Math.multiplyExact(4, pixels));
        int[] row = new int[width];
        for (int y = 0; y < image.getHeight(); ++y) {
            image.getRGB(0, y, width, 1, row, 0, width);
            for (int argb : row) {
                // Alpha comes last, since new buffers are big-endian.
                rgba.putInt(Integer.rotateLeft(argb, 8));
            }
        }
        rgba.rewind();
        return rgba;
    }

    /**
     * A preview as an image.
     *
     * @param preview not null, not empty
     * @return a new image of type {@link BufferedImage#TYPE_INT_ARGB}, never null
     * @throws IllegalArgumentException if the preview is empty
     */
    public static BufferedImage toImage(Preview preview) {
        if (preview.isEmpty()) {
            throw new IllegalArgumentException("the preview is empty; there are no images without pixels");
        }
        BufferedImage image = new BufferedImage(preview.width(), preview.height(), BufferedImage.TYPE_INT_ARGB);
        image.setRGB(0, 0, preview.width(), preview.height(), preview.pixels(), 0, preview.width());
        return image;
    }

    /**
     * An image turned by quarter turns. Upright images become frames by 270 degrees, and previews of such
     * frames upright images by 90 degrees.
     *
     * @param image of any type, not null
     * @param clockwiseDegrees 0, 90, 180 or 270
     * @return a new image of type {@link BufferedImage#TYPE_INT_ARGB}, never null
     * @throws IllegalArgumentException for another angle
     */
    public static BufferedImage turned(BufferedImage image, int clockwiseDegrees) {
        if (clockwiseDegrees < 0 || clockwiseDegrees > 270 || clockwiseDegrees % 90 != 0) {
            throw new IllegalArgumentException(
                    "clockwiseDegrees is " + clockwiseDegrees + "; it must be 0, 90, 180 or 270");
        }
        int width = image.getWidth();
        int height = image.getHeight();
        boolean onItsSide = clockwiseDegrees % 180 != 0;
        BufferedImage result = new BufferedImage(
                onItsSide ? height : width, onItsSide ? width : height, BufferedImage.TYPE_INT_ARGB);
        for (int y = 0; y < height; ++y) {
            for (int x = 0; x < width; ++x) {
                int argb = image.getRGB(x, y);
                switch (clockwiseDegrees) {
                    case 90:
                        result.setRGB(height - 1 - y, x, argb);
                        break;
                    case 180:
                        result.setRGB(width - 1 - x, height - 1 - y, argb);
                        break;
                    case 270:
                        result.setRGB(y, width - 1 - x, argb);
                        break;
                    default:
                        result.setRGB(x, y, argb);
                }
            }
        }
        return result;
    }
}
