// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.awt.image.BufferedImage;
import java.awt.image.DataBufferInt;
import java.nio.ByteBuffer;
import org.junit.jupiter.api.Test;
import org.tarnstitch.desktop.BufferedImages;

/** The desktop's images. */
class BufferedImagesTest {
    private static final int[] PIXELS = {
            0xFF000001, 0xFF000200, 0xFF030000, 0xFF040404, 0xFF050505, 0xFF060606};

    @Test
    void aPreviewHasTheVeryPixelsOfAnArgbImage() {
        BufferedImage image = BufferedImages.toImage(preview(PIXELS, 3, 2));
        assertEquals(BufferedImage.TYPE_INT_ARGB, image.getType());
        assertArrayEquals(PIXELS, ((DataBufferInt) image.getRaster().getDataBuffer()).getData());
        assertEquals(0xFF030000, image.getRGB(2, 0));
        assertEquals(0xFF040404, image.getRGB(0, 1));
    }

    @Test
    void anEmptyPreviewIsNoImage() {
        assertThrows(
                IllegalArgumentException.class, () -> BufferedImages.toImage(preview(new int[0], 0, 0)));
    }

    @Test
    void aFrameIsRedGreenBlueAlphaWhateverTheTypeOfTheImage() {
        byte[] expected = {0x11, 0x22, 0x33, (byte) 0xFF, 0x44, 0x55, 0x66, (byte) 0xFF};
        int[] types = {BufferedImage.TYPE_INT_ARGB, BufferedImage.TYPE_INT_RGB, BufferedImage.TYPE_3BYTE_BGR};
        for (int type : types) {
            BufferedImage image = new BufferedImage(1, 2, type);
            image.setRGB(0, 0, 0xFF112233);
            image.setRGB(0, 1, 0xFF445566);
            ByteBuffer frame = BufferedImages.toFrame(image);
            assertTrue(frame.isDirect());
            assertEquals(0, frame.position());
            byte[] bytes = new byte[frame.remaining()];
            frame.get(bytes);
            assertArrayEquals(expected, bytes);
        }
    }

    @Test
    void quarterTurnsAreClockwise() {
        BufferedImage image = BufferedImages.toImage(preview(new int[] {1, 2, 3, 4, 5, 6}, 3, 2));
        assertArrayEquals(new int[] {4, 1, 5, 2, 6, 3}, pixels(BufferedImages.turned(image, 90), 2, 3));
        assertArrayEquals(new int[] {6, 5, 4, 3, 2, 1}, pixels(BufferedImages.turned(image, 180), 3, 2));
        assertArrayEquals(new int[] {3, 6, 2, 5, 1, 4}, pixels(BufferedImages.turned(image, 270), 2, 3));
        assertArrayEquals(new int[] {1, 2, 3, 4, 5, 6}, pixels(BufferedImages.turned(image, 0), 3, 2));
    }

    @Test
    void anglesOtherThanQuarterTurnsAreRefused() {
        BufferedImage image = new BufferedImage(1, 1, BufferedImage.TYPE_INT_ARGB);
        for (int degrees : new int[] {-90, 45, 360}) {
            assertThrows(IllegalArgumentException.class, () -> BufferedImages.turned(image, degrees));
        }
    }

    private static int[] pixels(BufferedImage image, int width, int height) {
        assertEquals(width, image.getWidth());
        assertEquals(height, image.getHeight());
        return image.getRGB(0, 0, width, height, null, 0, width);
    }

    private static Preview preview(int[] pixels, int width, int height) {
        return new Preview(pixels, width, height, new float[0], false);
    }
}
