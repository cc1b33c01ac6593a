// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.awt.image.BufferedImage;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.ByteOrder;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import javax.imageio.ImageIO;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** Bundled footage through the binding and through a C++ host: the same codes, the same pictures. */
class WholeSweepTest {
    @TempDir
    Path directory;

    @Test
    void aRealPanGetsTheCodesAndTheBytesThatTheCppHostGets() throws Exception {
        compareHosts("parking_pan.mp4", 0);
    }

    @Test
    void aRenderedSlideGetsTheCodesAndTheBytesThatTheCppHostGets() throws Exception {
        compareHosts("hall_slide.mp4", 0);
    }

    @Test
    void aRowStrideGreaterThanARowMakesNoDifference() throws Exception {
        compareHosts("parking_pan.mp4", 52);
    }

    @Test
    void aFrameIsReadWhereItLiesWhateverThePositionLimitAndOrderOfTheBuffer() throws Exception {
        ByteBuffer plain = Frames.madeUp(160, 120, 0);
        plain.rewind();
        int[] expected = previewOf(plain);
        ByteBuffer odd = Frames.madeUp(160, 120, 0);
        odd.order(ByteOrder.LITTLE_ENDIAN).position(17).limit(40);
        assertArrayEquals(expected, previewOf(odd));
        assertEquals(17, odd.position());
        assertEquals(40, odd.limit());
        assertArrayEquals(expected, previewOf(plain.asReadOnlyBuffer()));
        ByteBuffer larger = ByteBuffer.allocateDirect(plain.capacity() + 100);
        larger.position(100);
        larger.put(plain);
        larger.position(100);
        assertArrayEquals(expected, previewOf(larger.slice()));
    }

    @Test
    void redGreenAndBlueArriveWhereTheyBelong() throws Exception {
        // The working copy of a small frame, and so its preview, is the frame itself.
        ByteBuffer frame = Frames.madeUp(160, 120, 0);
        frame.putInt(0, 0x10203040);
        try (TarnStitch sweep = TarnStitch.reset(directory.resolve("work"))) {
            sweep.stitch(frame, 160, 120, 640, Direction.NONE, false);
            assertEquals(0xFF102030, sweep.preview().pixels()[0]);
            assertEquals(160, sweep.preview().width());
            assertEquals(120, sweep.preview().height());
        }
    }

    @Test
    void everyFormatOfAFrameArrivesAsTheSamePicture() throws Exception {
        ByteBuffer rgba = Frames.madeUp(160, 120, 0);
        ByteBuffer bgra = ByteBuffer.allocateDirect(4 * 160 * 120);
        ByteBuffer bgr = ByteBuffer.allocateDirect(3 * 160 * 120);
        ByteBuffer gray = ByteBuffer.allocateDirect(160 * 120);
        for (int i = 0; i < 160 * 120; ++i) {
            int pixel = rgba.getInt(4 * i);
            bgra.putInt(Integer.rotateLeft(Integer.reverseBytes(pixel), 8));
            bgr.put((byte) (pixel >> 8)).put((byte) (pixel >> 16)).put((byte) (pixel >> 24));
            gray.put((byte) (pixel >> 16));
        }
        int[] expected = previewOf(rgba);
        assertArrayEquals(expected, previewOf(Frame.bgra(bgra, 160, 120, 0)));
        assertArrayEquals(expected, previewOf(Frame.bgr(bgr, 160, 120, 3 * 160)));
        int[] greenAlone = previewOf(Frame.gray(gray, 160, 120, 0));
        for (int i = 0; i < expected.length; ++i) {
            int green = expected[i] >> 8 & 0xFF;
            assertEquals(0xFF000000 | green * 0x010101, greenAlone[i]);
        }
    }

    @Test
    void aPanoramaWhoseFileIsGoneIsMissingThoughThePictureIsThere() throws Exception {
        try (TarnStitch sweep = TarnStitch.reset(directory.resolve("work"))) {
            sweep.stitch(Frames.madeUp(320, 240, 0), 320, 240, 1280, Direction.NONE, true);
            Path file = sweep.panorama().get();
            byte[] whole = Files.readAllBytes(file);
            Files.delete(file);
            assertFalse(sweep.panorama().isPresent());
            assertArrayEquals(whole, sweep.finish().toJpeg());
        }
    }

    private int[] previewOf(ByteBuffer rgba) throws IOException {
        return previewOf(Frame.rgba(rgba, 160, 120, 640));
    }

    private int[] previewOf(Frame frame) throws IOException {
        try (TarnStitch sweep = TarnStitch.begin(directory)) {
            assertEquals(FrameResult.NORMAL, sweep.feed(frame, Direction.NONE).result());
            assertEquals(160 * 120, sweep.preview().pixels().length);
            return sweep.preview().pixels();
        }
    }

    private void compareHosts(String video, int padding) throws Exception {
        Setup.Ended host = Setup.run(Arrays.asList(
                Setup.REFERENCE_HOST, "stitch", Setup.SAMPLES.resolve(video).toString(), directory.toString()));
        assertEquals(0, host.exitCode, host.errors);
        List<Integer> expectedCodes = new ArrayList<>();
        for (String line : Files.readAllLines(directory.resolve("codes.txt"))) {
            expectedCodes.add(Integer.valueOf(line));
        }
        assertTrue(expectedCodes.size() >= 150, "only " + expectedCodes.size() + " frames");

        List<Integer> codes = new ArrayList<>();
        Path work = directory.resolve("work");
        try (Decoder decoder = new Decoder(video); TarnStitch sweep = TarnStitch.reset(work)) {
            assertTrue(sweep.preview().isEmpty());
            while (decoder.hasNext()) {
                int rowStride = 4 * decoder.width + padding;
                ByteBuffer frame = decoder.padded(decoder.next(), rowStride);
                assertFalse(sweep.panorama().isPresent());
                boolean last = !decoder.hasNext();
                codes.add(sweep.stitch(frame, decoder.width, decoder.height, rowStride, Direction.NONE, last)
                                  .code());
                assertTrue(sweep.holdBack(2));
            }
            assertEquals(expectedCodes, codes);
            assertEquals(0, sweep.pendingKeyFrames());
            Path panorama = sweep.panorama().get();
            assertEquals(work.toRealPath().resolve("big_stitch.jpg"), panorama);
            byte[] expected = Files.readAllBytes(directory.resolve("panorama.jpg"));
            assertArrayEquals(expected, Files.readAllBytes(panorama));
            assertArrayEquals(expected, sweep.finish().toJpeg());
            comparePreviews(ImageIO.read(directory.resolve("preview.png").toFile()), sweep.preview());
        }
    }

    private static void comparePreviews(BufferedImage expected, Preview preview) {
        assertEquals(expected.getWidth(), preview.width());
        assertEquals(expected.getHeight(), preview.height());
        int width = preview.width();
        assertArrayEquals(expected.getRGB(0, 0, width, preview.height(), null, 0, width), preview.pixels());
    }
}
