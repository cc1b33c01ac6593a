// SPDX-License-Identifier: Apache-2.0
package com.example.panorama;

import android.graphics.Bitmap;
import androidx.camera.core.ImageAnalysis;
import androidx.camera.core.ImageProxy;
import java.io.IOException;
import java.nio.file.Path;
import java.util.Optional;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import org.tarnstitch.Direction;
import org.tarnstitch.FrameResult;
import org.tarnstitch.Preview;
import org.tarnstitch.TarnStitch;

/** Between a camera and the library: films one panorama after another. */
public final class PanoramaRecorder implements ImageAnalysis.Analyzer {
    /** The app's screen. Called on the stitching thread: what is drawn must be passed on to the main thread. */
    public interface Screen {
        /** After each frame. The preview is null until there is one; turn it clockwise to show it upright. */
        void show(FrameResult result, Bitmap preview, int rotationDegrees);

        /** Copies the file to where it shall stay: it is deleted afterwards. */
        void save(Path panorama, int rotationDegrees);

        /** There will be no panorama. */
        void failed(String reason);
    }

    private final ExecutorService stitching = Executors.newSingleThreadExecutor();
    private final Path workingDirectory;
    private final Screen screen;
    private volatile TarnStitch sweep; // null between sweeps; what follows is the stitching thread's alone
    private Direction direction = Direction.NONE;
    private boolean stopping;

    /** The directory belongs to the library, which deletes what lies in it. */
    public PanoramaRecorder(Path workingDirectory, Screen screen) {
        this.workingDirectory = workingDirectory;
        this.screen = screen;
    }

    /** The use case to bind to the camera, beside the one that shows the viewfinder. */
    public ImageAnalysis useCase() {
        ImageAnalysis camera = new ImageAnalysis.Builder()
                .setOutputImageFormat(ImageAnalysis.OUTPUT_IMAGE_FORMAT_RGBA_8888)
                .setBackpressureStrategy(ImageAnalysis.STRATEGY_KEEP_ONLY_LATEST)
                .build();
        camera.setAnalyzer(stitching, this);
        return camera;
    }

    /** The user starts a sweep in a direction, as seen on the screen. */
    public void start(Direction direction) {
        stitching.execute(() -> {
            this.direction = direction;
            stopping = false;
            try {
                sweep = TarnStitch.reset(workingDirectory);
            } catch (IOException e) {
                screen.failed(e.getMessage());
            }
        });
    }

    /** The user is done: the next frame is the last one. */
    public void finish() {
        stitching.execute(() -> stopping = true);
    }

    /** The user gives up, in mid-sweep or while the panorama is made; or the screen goes away. */
    public void cancel() {
        TarnStitch running = sweep;
        if (running != null) {
            running.close(); // at once, even if the stitching thread waits for the panorama
        }
        stitching.execute(this::end); // after a start that is still on its way
    }

    /** Ends the stitching thread; the object cannot be used any more. */
    public void release() {
        cancel();
        stitching.shutdown();
    }

    /** A frame of the camera, on the stitching thread. */
    @Override
    public void analyze(ImageProxy image) {
        try {
            TarnStitch running = sweep;
            if (running != null) {
                stitch(running, image, stopping);
            }
        } catch (IllegalStateException cancelled) {
            // The sweep was closed while its frame was on the way.
        } finally {
            image.close(); // or the camera sends no more
        }
    }

    private void stitch(TarnStitch running, ImageProxy image, boolean last) {
        int rotationDegrees = image.getImageInfo().getRotationDegrees();
        ImageProxy.PlaneProxy rgba = image.getPlanes()[0];
        FrameResult result = running.stitch(rgba.getBuffer(), image.getWidth(), image.getHeight(),
                rgba.getRowStride(), direction.inFrames(rotationDegrees), last);
        Preview preview = running.preview();
        Bitmap bitmap = preview.isEmpty()
                ? null
                : Bitmap.createBitmap(
                        preview.pixels(), preview.width(), preview.height(), Bitmap.Config.ARGB_8888);
        screen.show(result, bitmap, rotationDegrees);
        if (last) {
            Optional<Path> panorama = running.panorama();
            if (panorama.isPresent()) {
                screen.save(panorama.get(), rotationDegrees);
            } else {
                screen.failed(FrameResult.FAILED.userMessage());
            }
            end();
        }
    }

    private void end() {
        if (sweep != null) {
            sweep.close();
            sweep = null;
        }
    }
}
