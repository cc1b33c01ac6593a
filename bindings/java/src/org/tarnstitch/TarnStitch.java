// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.channels.SeekableByteChannel;
import java.nio.file.FileSystems;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Objects;
import java.util.Optional;
import java.util.concurrent.TimeUnit;

/**
 * One sweep of the camera, from its first frame to its panorama.
 *
 * <pre>{@code
 * TarnStitch sweep = TarnStitch.reset(cacheDirectory.resolve("sweep"));
 * // for each frame of the camera:
 * FrameResult result = sweep.stitch(rgba, width, height, rowStride, Direction.NONE, false);
 * tell(result.userMessage());
 * show(sweep.preview());
 * // the last one, which waits for the panorama:
 * sweep.stitch(rgba, width, height, rowStride, Direction.NONE, true);
 * sweep.panorama().ifPresent(file -> copyToGallery(file));
 * sweep.close();
 * }</pre>
 *
 * <h2>One sweep at a time</h2>
 *
 * <p>The library works on one sweep per process. {@link #reset} ends the one before, wherever it was; the
 * methods of the old object then throw {@link IllegalStateException}, except {@link #close}, which does
 * nothing.
 *
 * <h2>Threads</h2>
 *
 * <p>A sweep is meant to be used from one thread of the app's, and not the one that draws, since a frame takes
 * some milliseconds and the last one up to 20 seconds. All the same every method may be called from any thread
 * at any time:
 *
 * <ul>
 *   <li>A frame that comes while another call is inside the library, or waits to begin or end a sweep, is not
 *       taken. The answer comes at once: it is {@link FrameResult#LOST}, the library's code for "busy", or
 *       {@link FrameResult#FAILED} if the panorama has failed anyway.
 *   <li>A last frame that comes while another call is inside waits for it and is then taken.
 *   <li>{@link #reset} and {@link #close} wait for the call inside. If that one is waiting for its panorama, it
 *       is told to give up: it returns within moments, without a panorama.
 *   <li>{@link #preview}, {@link #panorama} and {@link #pendingKeyFrames} never wait for a frame. They show
 *       what there was after the last call that has returned.
 * </ul>
 *
 * <p>The workers that make the high-resolution panorama are threads of the library's own and never call into
 * Java.
 *
 * <h2>Orientation</h2>
 *
 * <p>Frames are taken as the sensor of a device held upright delivers them, lying on their side: the finished
 * panorama is turned by 90 degrees clockwise against the frames, the preview is not.
 *
 * <h2>Output</h2>
 *
 * <p>The library writes log lines to the standard output of the process (not through {@link System#out}); one
 * of them has no line end. A program that prints results there has to live with them; Android drops them.
 */
public final class TarnStitch implements AutoCloseable {
    private static final long POLL_MILLIS = 10;
    /** A worker gives up after two waits of 20 seconds at most, so what has not moved for longer never will. */
    private static final long PATIENCE_NANOS = TimeUnit.SECONDS.toNanos(60);

    private final long sweep;

    private TarnStitch(long sweep) {
        this.sweep = sweep;
    }

    /**
     * Starts a sweep and ends the one before.
     *
     * <p><strong>The directory is wholly the library's: whatever lies in it is deleted</strong>, now and when
     * the sweep ends, and the directory of the sweep before is removed if it is another one. Never hand over
     * one in which anybody keeps files. It is created if it is missing, parents included. The "/" that the
     * library wants at the end of its path is added.
     *
     * <p>May be called from any thread; waits for a call that is inside the library (see above).
     *
     * @param workingDirectory a directory of the default file system, not null; a relative path is resolved at
     *     once
     * @return the new sweep, never null
     * @throws IOException when the directory cannot be created, or not be read and written; the sweep before
     *     goes on then, unless its directory held the new one
     * @throws IllegalArgumentException for the empty path, for the root of the file system, and for a path of
     *     another file system
     */
    public static TarnStitch reset(Path workingDirectory) throws IOException {
        Objects.requireNonNull(workingDirectory, "workingDirectory is null");
        if (workingDirectory.getFileSystem() != FileSystems.getDefault()) {
            throw new IllegalArgumentException(
                    "the working directory " + workingDirectory + " is not in the default file system");
        }
        if (workingDirectory.toString().isEmpty()) {
            throw new IllegalArgumentException(
                    "the working directory is the empty path; the files of the current one would be deleted");
        }
        Path directory = workingDirectory.toAbsolutePath();
        prepare(directory);
        long sweep = NativeCalls.reset(PathBytes.ofDirectory(directory));
        if (sweep == 0) {
            // The old directory held the new one, which went with it. A sweep without files ends the old one
            // for good.
            NativeCalls.reset(new byte[0]);
            prepare(directory);
            sweep = NativeCalls.reset(PathBytes.ofDirectory(directory));
        }
        if (sweep == 0) {
            throw new IOException("the library cannot enter the working directory " + directory);
        }
        return new TarnStitch(sweep);
    }

    /**
     * Registers one frame: some milliseconds; with the last one, until the panorama is written or 20 seconds
     * have passed.
     *
     * <p>The frame is read where it lies, without a copy, and not needed any more when the method returns. Its
     * first pixel is the first byte of the buffer: position, limit and byte order are neither looked at nor
     * changed. All frames of a sweep should have one size.
     *
     * @param rgba a direct buffer of the frame's pixels, four bytes each, in the order red, green, blue, alpha;
     *     alpha is ignored; not null
     * @param width in pixels, at least 1
     * @param height in pixels, at least 1
     * @param rowStride bytes from the start of a row to the start of the next, at least {@code 4 * width}; the
     *     last row needs no padding behind it
     * @param hint the direction in which the camera is meant to move, in the coordinates of the frames; motion
     *     against it is answered {@link FrameResult#WRONG_WAY}; not null
     * @param last whether the sweep ends with this frame
     * @return what the library says about the frame, never null. {@link FrameResult#NORMAL} for the last frame
     *     does not say that there is a panorama: ask {@link #panorama}
     * @throws NullPointerException if {@code rgba} or {@code hint} is null
     * @throws IllegalArgumentException if the buffer is not direct or too small, or a size is out of its range;
     *     the message has the values
     * @throws IllegalStateException if the sweep is over
     */
    public FrameResult stitch(
            ByteBuffer rgba, int width, int height, int rowStride, Direction hint, boolean last) {
        Objects.requireNonNull(hint, "hint is null");
        return FrameResult.of(NativeCalls.stitch(sweep, rgba, width, height, rowStride, hint.code(), last));
    }

    /**
     * The preview panorama: as wide as the working copy of a frame at first (300 pixels at most), growing with
     * the sweep.
     *
     * @return a copy of it, never null; empty before the first frame that the library could track
     * @throws IllegalStateException if the sweep is over
     */
    public Preview preview() {
        int[] size = new int[2];
        int[] pixels = NativeCalls.preview(sweep, size);
        return new Preview(pixels, size[0], size[1]);
    }

    /**
     * The finished high-resolution panorama, a JPEG file in the working directory. Copy it before the next
     * sweep or {@link #close}: both delete it.
     *
     * @return its path, absolute; empty before the last frame, and after it when there is none: the workers
     *     have failed or were not done in time, or the file could not be written whole (the disk is full)
     * @throws IllegalStateException if the sweep is over
     */
    public Optional<Path> panorama() {
        byte[] path = NativeCalls.panorama(sweep);
        if (path.length == 0) {
            return Optional.empty();
        }
        // The library does not look whether its file could be written.
        return Optional.of(PathBytes.toPath(path)).filter(TarnStitch::isWholeJpeg);
    }

    /**
     * How many key frames the workers have still to do. A camera gives them time enough; what is read from
     * files must be held back (see {@link #holdBack}).
     *
     * @return 0 or more
     * @throws IllegalStateException if the sweep is over
     */
    public int pendingKeyFrames() {
        return NativeCalls.pendingKeyFrames(sweep);
    }

    /**
     * Waits for the workers. For hosts that feed frames faster than a camera would: a worker gives up when its
     * turn has not come after 20 seconds, and each holds a frame in memory. Call it after each frame, with 2,
     * say.
     *
     * @param keyFrames how many key frames may be left to do when the method returns; 0 or more
     * @return false if the workers have not moved for a minute; nothing will come of the sweep then
     * @throws InterruptedException if the thread is interrupted
     * @throws IllegalArgumentException if {@code keyFrames} is negative
     * @throws IllegalStateException if the sweep is over, or ends meanwhile
     */
    public boolean holdBack(int keyFrames) throws InterruptedException {
        if (keyFrames < 0) {
            throw new IllegalArgumentException("keyFrames is " + keyFrames + "; it must be at least 0");
        }
        int lastSeen = pendingKeyFrames();
        long lastProgress = System.nanoTime();
        while (lastSeen > keyFrames) {
            if (System.nanoTime() - lastProgress > PATIENCE_NANOS) {
                return false;
            }
            Thread.sleep(POLL_MILLIS);
            int pending = pendingKeyFrames();
            if (pending != lastSeen) {
                lastSeen = pending;
                lastProgress = System.nanoTime();
            }
        }
        return true;
    }

    /**
     * Ends the sweep: its workers leave without trace, its memory is released, its working directory is removed
     * with everything in it, the panorama included. Does nothing if the sweep is over.
     *
     * <p>May be called from any thread; waits for a call that is inside the library (see above).
     */
    @Override
    public void close() {
        NativeCalls.close(sweep);
    }

    private static boolean isWholeJpeg(Path file) {
        try (SeekableByteChannel bytes = Files.newByteChannel(file)) {
            ByteBuffer marker = ByteBuffer.allocate(2);
            bytes.position(Math.max(0, bytes.size() - 2));
            while (marker.hasRemaining() && bytes.read(marker) >= 0) {
                // once more
            }
            return marker.getShort(0) == (short) 0xFFD9;
        } catch (IOException missing) {
            return false;
        }
    }

    private static void prepare(Path directory) throws IOException {
        // createDirectories alone would refuse a link to a directory.
        if (!Files.isDirectory(directory)) {
            Files.createDirectories(directory);
        }
        if (directory.toRealPath().getNameCount() == 0) {
            throw new IllegalArgumentException(
                    "the working directory " + directory + " is the root; all files would be deleted");
        }
        if (!Files.isReadable(directory) || !Files.isWritable(directory) || !Files.isExecutable(directory)) {
            throw new IOException("the working directory " + directory + " cannot be read and written");
        }
    }
}
