// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNotNull;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import android.graphics.Bitmap;
import androidx.camera.core.ImageAnalysis;
import androidx.camera.core.ImageInfo;
import androidx.camera.core.ImageProxy;
import com.example.panorama.PanoramaRecorder;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.concurrent.CountDownLatch;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.io.TempDir;

/** The document's sample for apps, on stand-ins for the platform's classes. */
class AndroidSampleTest {
    private static final int WIDTH = 320;
    private static final int HEIGHT = 240;

    @TempDir
    Path directory;

    private final RecordingScreen screen = new RecordingScreen();
    private Path cache;
    private PanoramaRecorder recorder;
    private ImageAnalysis camera;
    private int closedImages;

    @BeforeEach
    void open() throws IOException {
        cache = Files.createDirectory(directory.resolve("cache"));
        recorder = new PanoramaRecorder(cache, screen);
        camera = recorder.useCase();
    }

    @AfterEach
    void release() {
        recorder.release();
    }

    @Test
    void theCameraIsAskedForTheNewestFrameInRgba() {
        assertEquals(ImageAnalysis.OUTPUT_IMAGE_FORMAT_RGBA_8888, camera.outputImageFormat);
        assertEquals(ImageAnalysis.STRATEGY_KEEP_ONLY_LATEST, camera.backpressureStrategy);
    }

    @Test
    void aSweepEndsWithASavedPanoramaAndAnEmptyCache() throws Exception {
        frame(0);
        recorder.start(Direction.NONE);
        int frames = 12;
        for (int i = 0; i < frames; ++i) {
            frame(10 * i);
        }
        recorder.finish();
        frame(10 * frames);
        frame(10 * frames + 10);
        waitForStitching();
        assertEquals(frames + 3, closedImages);
        // Frames before the start and after the end are not looked at.
        assertEquals(frames, screen.results.size());
        assertNotNull(screen.panorama);
        assertEquals((byte) 0xD8, screen.panorama[1]);
        assertEquals(90, screen.rotationDegrees);
        assertTrue(screen.preview.width > 300);
        assertEquals(screen.preview.width * screen.preview.height, screen.preview.colors.length);
        assertEquals(0, cache.toFile().list().length);
        assertNull(screen.failure);
    }

    @Test
    void aCancelledSweepLeavesNothingAndTheNextOneIsUntouched() throws Exception {
        recorder.start(Direction.NONE);
        frame(0);
        frame(10);
        recorder.cancel();
        waitForStitching();
        assertEquals(0, cache.toFile().list().length);
        recorder.start(Direction.NONE);
        recorder.finish();
        frame(0);
        waitForStitching();
        assertNotNull(screen.panorama);
    }

    @Test
    void cancellingBeforeTheStartHasHappenedCancelsIt() throws Exception {
        recorder.start(Direction.NONE);
        recorder.cancel();
        frame(0);
        waitForStitching();
        assertEquals(Collections.emptyList(), screen.results);
        assertEquals(0, cache.toFile().list().length);
    }

    @Test
    void theDirectionOfTheScreenIsTurnedIntoThatOfTheFrames() throws Exception {
        // Frames lie on their side: what moves right in them moves down on the screen.
        recorder.start(Direction.UP);
        frame(0);
        frame(12);
        waitForStitching();
        assertEquals(FrameResult.WRONG_WAY, screen.results.get(1));
    }

    @Test
    void aDirectoryThatCannotBeHadIsReported() throws Exception {
        Files.delete(cache);
        recorder.start(Direction.NONE);
        frame(0);
        waitForStitching();
        assertNotNull(screen.failure);
        assertEquals(Collections.emptyList(), screen.results);
    }

    private void frame(int x) {
        camera.executor.execute(() -> camera.analyzer.analyze(new Image(x)));
    }

    private void waitForStitching() throws InterruptedException {
        CountDownLatch done = new CountDownLatch(1);
        camera.executor.execute(done::countDown);
        done.await();
    }

    private static final class RecordingScreen implements PanoramaRecorder.Screen {
        final List<FrameResult> results = Collections.synchronizedList(new ArrayList<>());
        volatile Bitmap preview;
        volatile int rotationDegrees;
        volatile byte[] panorama;
        volatile String failure;

        @Override
        public void show(FrameResult result, Bitmap preview, int rotationDegrees) {
            results.add(result);
            this.preview = preview;
        }

        @Override
        public void progress(int done, int keyFrames) {
            assertTrue(done <= keyFrames);
        }

        @Override
        public void save(Panorama panorama, int rotationDegrees) {
            this.rotationDegrees = rotationDegrees;
            this.panorama = panorama.toJpeg();
        }

        @Override
        public void failed(String reason) {
            failure = reason;
        }
    }

    /** A frame whose rows are followed by padding, except the last one. */
    private final class Image implements ImageProxy, ImageProxy.PlaneProxy, ImageInfo {
        private final ByteBuffer buffer;

        Image(int x) {
            ByteBuffer rows = Frames.madeUp(WIDTH, HEIGHT, x);
            buffer = ByteBuffer.allocateDirect(getRowStride() * (HEIGHT - 1) + 4 * WIDTH);
            byte[] row = new byte[4 * WIDTH];
            for (int y = 0; y < HEIGHT; ++y) {
                rows.get(row);
                buffer.position(y * getRowStride());
                buffer.put(row);
            }
            buffer.rewind();
        }

        @Override
        public int getRowStride() {
            return 4 * WIDTH + 64;
        }

        @Override
        public int getPixelStride() {
            return 4;
        }

        @Override
        public ByteBuffer getBuffer() {
            return buffer;
        }

        @Override
        public int getWidth() {
            return WIDTH;
        }

        @Override
        public int getHeight() {
            return HEIGHT;
        }

        @Override
        public PlaneProxy[] getPlanes() {
            return new PlaneProxy[] {this};
        }

        @Override
        public ImageInfo getImageInfo() {
            return this;
        }

        @Override
        public int getRotationDegrees() {
            return 90;
        }

        @Override
        public void close() {
            ++closedImages;
        }
    }
}
