// SPDX-License-Identifier: Apache-2.0
package com.example.panorama;

import android.graphics.Bitmap;
import androidx.camera.core.ImageAnalysis;
import androidx.camera.core.ImageProxy;
import java.io.IOException;
import java.nio.file.Path;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import org.tarnstitch.Direction;
import org.tarnstitch.Frame;
import org.tarnstitch.FrameResult;
import org.tarnstitch.Panorama;
import org.tarnstitch.Preview;
import org.tarnstitch.Reason;
import org.tarnstitch.TarnStitch;

/** Between a camera and the library: films one panorama after another. */
public final class PanoramaRecorder implements ImageAnalysis.Analyzer {
    /** The app's screen. Called on the stitching thread: what is drawn must be passed on to the main thread. */
    public interface Screen {
        /** After each frame. The preview is null until there is one; turn it clockwise to show it upright. */
        void show(FrameResult result, Bitmap preview, int rotationDegrees);

        /** After the last frame, again and again: so many of the sweep's key frames are through. */
        void progress(int done, int keyFrames);

        /** Writes the panorama to where it shall stay. */
        void save(Panorama panorama, int rotationDegrees);

        /** There will be no panorama. */
        void failed(String reason);
    }

    private final ExecutorService stitching = Executors.newSingleThreadExecutor();
    private final Path cache;
    private final Screen screen;
    private volatile TarnStitch sweep; // null between sweeps; what follows is the stitching thread's alone
    private Direction direction = Direction.NONE;
    private boolean stopping;

    /** Each sweep has a directory of its own in the cache for as long as it lasts. */
    public PanoramaRecorder(Path cache, Screen screen) {
        this.cache = cache;
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
                sweep = TarnStitch.begin(cache);
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
                stitch(running, image);
            }
        } catch (IllegalStateException cancelled) {
            // The sweep was closed while its frame was on the way.
        } finally {
            image.close(); // or the camera sends no more
        }
    }

    private void stitch(TarnStitch running, ImageProxy image) {
        int rotationDegrees = image.getImageInfo().getRotationDegrees();
        ImageProxy.PlaneProxy rgba = image.getPlanes()[0];
        Frame frame = Frame.rgba(rgba.getBuffer(), image.getWidth(), image.getHeight(), rgba.getRowStride());
        Direction hint = direction.inFrames(rotationDegrees);
        if (stopping) {
            Panorama panorama = running.finish(frame, hint, this::progress);
            end();
            if (panorama.isMissing() || panorama.why() == Reason.CANCELLED) {
                screen.failed(panorama.why().text());
            } else {
                screen.save(panorama, rotationDegrees);
            }
            return;
        }
        FrameResult result = running.feed(frame, hint).result();
        Preview preview = running.preview();
        Bitmap bitmap = preview.isEmpty()
                ? null
                : Bitmap.createBitmap(
                        preview.pixels(), preview.width(), preview.height(), Bitmap.Config.ARGB_8888);
        screen.show(result, bitmap, rotationDegrees);
    }

    private boolean progress(int done, int keyFrames) {
        screen.progress(done, keyFrames);
        return true; // go on; cancel() ends the wait
    }

    private void end() {
        if (sweep != null) {
            sweep.close();
            sweep = null;
        }
    }
}
