// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.Objects;
import java.util.Optional;

/**
 * One sweep of the camera, from its first frame to its panorama.
 *
 * <pre>{@code
 * try (TarnStitch sweep = TarnStitch.begin()) {
 *     // for each frame of the camera:
 *     FrameAnswer answer = sweep.feed(Frame.rgba(buffer, width, height, rowStride), Direction.NONE);
 *     tell(answer.result().userMessage());
 *     show(sweep.preview());
 *     // in the end, which waits for the workers:
 *     Panorama panorama = sweep.finish();
 *     panorama.writeTo(pictures.resolve("panorama.jpg"));
 * }
 * }</pre>
 *
 * <h2>One sweep at a time</h2>
 *
 * <p>The library works on one sweep per process. Beginning another one ends the one before, wherever it was; the
 * methods of the old object then throw {@link IllegalStateException}, except {@link #close} and {@link #cancel}, which
 * do nothing.
 *
 * <h2>Threads</h2>
 *
 * <p>A sweep is meant to be used from one thread of the app's, and not the one that draws, since a frame takes
 * some milliseconds and the panorama some seconds. All the same every method may be called from any thread at any
 * time:
 *
 * <ul>
 *   <li>A frame that comes while another call is inside the library, or waits to begin or end a sweep, is not
 *       taken. The answer comes at once: it is {@link FrameResult#LOST}, the library's code for "busy", or
 *       {@link FrameResult#FAILED} if the panorama has failed anyway.
 *   <li>{@link #finish}, and {@link #stitch} with the last frame, wait for the call inside, then have their turn.
 *   <li>Beginning a sweep, {@link #cancel} and {@link #close} wait for the call inside. If that one is waiting for
 *       its panorama, it is told to give up: it returns within moments, with what there is by then.
 *   <li>All others never wait for a frame. They show what there was after the last call that has returned.
 * </ul>
 *
 * <p>Every wait is bounded: workers that have not moved for a minute never will. An interrupt of the thread ends its
 * wait for workers, too, and leaves the thread interrupted; {@link #holdBack} throws instead.
 *
 * <p>The workers that make the high-resolution panorama are threads of the library's own and never call into
 * Java. While the process ends, frames are not taken any more and sweeps cannot be begun.
 *
 * <h2>Orientation</h2>
 *
 * <p>Frames are taken as the sensor of a device held upright delivers them, lying on their side: the finished
 * panorama is turned by 90 degrees clockwise against the frames, the preview is not.
 */
public final class TarnStitch implements AutoCloseable {
    private final long sweep;
    private volatile Path panorama;

    private TarnStitch(long sweep) {
        this.sweep = sweep;
    }

    /**
     * Begins a sweep and ends the one before. Its files lie in a private directory, which is made where the virtual
     * machine has temporary files (the app's cache on Android) and removed with the sweep.
     *
     * <p>May be called from any thread; waits for a call that is inside the library (see above).
     *
     * @return the new sweep, never null
     * @throws IOException when the directory cannot be made; the sweep before goes on then
     * @throws IllegalStateException while the process ends
     */
    public static TarnStitch begin() throws IOException {
        return begin(Paths.get(System.getProperty("java.io.tmpdir")));
    }

    /**
     * The same with a private directory in another place.
     *
     * @param parent where it is made: a directory of the default file system, not null. Nothing else in there is
     *     touched
     * @return the new sweep, never null
     * @throws IOException when the directory cannot be made; the sweep before goes on then
     * @throws IllegalArgumentException for a path of another file system
     * @throws IllegalStateException while the process ends
     */
    public static TarnStitch begin(Path parent) throws IOException {
        Objects.requireNonNull(parent, "parent is null");
        return new TarnStitch(NativeCalls.begin(new byte[0], PathBytes.of(parent)));
    }

    /**
     * The same with a directory of the host's choice. It is created if it is missing, parents included, for its owner
     * alone; <strong>one in which anything lies is refused.</strong> From then on it is wholly the sweep's, and removed
     * with it, whatever lies in it by then.
     *
     * @param workingDirectory a directory of the default file system, not null; a relative path is resolved at
     *     once
     * @return the new sweep, never null
     * @throws IOException when anything lies in the directory, or when it cannot be created, or not be read and
     *     written; the sweep before goes on then, unless one of the two directories holds the other
     * @throws IllegalArgumentException for the empty path, and for a path of another file system
     * @throws IllegalStateException while the process ends
     */
    public static TarnStitch reset(Path workingDirectory) throws IOException {
        Objects.requireNonNull(workingDirectory, "workingDirectory is null");
        if (workingDirectory.toString().isEmpty()) {
            throw new IllegalArgumentException("workingDirectory is the empty path");
        }
        return new TarnStitch(NativeCalls.begin(PathBytes.of(workingDirectory), new byte[0]));
    }

    /**
     * Registers one frame, in typically a few milliseconds. All frames of a sweep should have one size.
     *
     * @param frame not null
     * @param hint the direction in which the camera is meant to move, in the coordinates of the frames; motion
     *     against it is answered {@link FrameResult#WRONG_WAY}; not null
     * @return what became of it, never null
     * @throws NullPointerException if {@code frame} or {@code hint} is null
     * @throws IllegalArgumentException if the frame's buffer is not direct or too small, or a size is out of its
     *     range; the message has the values
     * @throws IllegalStateException if the sweep is over
     */
    public FrameAnswer feed(Frame frame, Direction hint) {
        Objects.requireNonNull(frame, "frame is null");
        Objects.requireNonNull(hint, "hint is null");
        return NativeCalls.feed(
                sweep, frame.pixels, frame.width, frame.height, frame.rowStride, frame.format, hint.code());
    }

    /**
     * Waits for the workers and hands the panorama out, which ends with the last key frame. May be called again: when
     * no frame came after the first time, the answer is the same. A frame that is fed afterwards goes on with the
     * sweep.
     *
     * @return the panorama, or why there is none; never null
     * @throws IllegalStateException if the sweep is over
     */
    public Panorama finish() {
        return NativeCalls.finish(sweep, null, 0, 0, 0, 0, Direction.NONE.code(), null);
    }

    /**
     * The same while somebody looks at the progress, and may end the wait.
     *
     * @param progress is told how far the panorama is, not null
     * @return the panorama, or why there is none; never null
     * @throws NullPointerException if {@code progress} is null
     * @throws IllegalStateException if the sweep is over
     */
    public Panorama finish(Progress progress) {
        Objects.requireNonNull(progress, "progress is null");
        return NativeCalls.finish(sweep, null, 0, 0, 0, 0, Direction.NONE.code(), progress);
    }

    /**
     * The same with a last frame, which becomes part of the panorama without being registered, wherever it lies: so the
     * panorama shows all that the user has seen.
     *
     * @param lastFrame not null
     * @param hint as for {@link #feed}
     * @param progress is told how far the panorama is, not null
     * @return the panorama, or why there is none; never null
     * @throws NullPointerException if an argument is null
     * @throws IllegalArgumentException as for {@link #feed}
     * @throws IllegalStateException if the sweep is over
     */
    public Panorama finish(Frame lastFrame, Direction hint, Progress progress) {
        Objects.requireNonNull(lastFrame, "lastFrame is null");
        Objects.requireNonNull(progress, "progress is null");
        return finishWith(lastFrame, hint, progress);
    }

    /**
     * A frame in one call, for hosts that want codes and files: {@link #feed}, or, with the last frame,
     * {@link #finish} and the panorama's file for {@link #panorama}.
     *
     * @param rgba a direct buffer of the frame's pixels, four bytes each, in the order red, green, blue, alpha;
     *     alpha is ignored; not null
     * @param width in pixels, 1 to 16384
     * @param height in pixels, 1 to 16384
     * @param rowStride bytes from the start of a row to the start of the next, at least {@code 4 * width}; the
     *     last row needs no padding behind it
     * @param hint as for {@link #feed}
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
        Frame frame = Frame.rgba(rgba, width, height, rowStride);
        if (!last) {
            return feed(frame, hint).result();
        }
        Panorama result = finishWith(frame, hint, null);
        panorama = result.file().length > 0 ? PathBytes.toPath(result.file()) : null;
        return result.lastFrame().get().result();
    }

    /**
     * The panorama of a sweep that ended with the last frame of {@link #stitch}, a JPEG file in the working directory.
     * Copy it before the next sweep or {@link #close}: both delete it.
     *
     * @return its path, absolute; empty before the last frame, and after it when there is none: the workers
     *     have failed or were not done in time, or the file could not be written whole (the disk is full)
     * @throws IllegalStateException if the sweep is over
     */
    public Optional<Path> panorama() {
        NativeCalls.status(sweep);
        return Optional.ofNullable(panorama).filter(Files::exists);
    }

    /**
     * The preview panorama: as wide as the working copy of a frame at first (300 pixels at most), growing with
     * the sweep.
     *
     * @return a copy of it, never null; empty before the first frame that the library could track
     * @throws IllegalStateException if the sweep is over
     */
    public Preview preview() {
        return NativeCalls.preview(sweep);
    }

    /**
     * Where the sweep stands.
     *
     * @return never null
     * @throws IllegalStateException if the sweep is over
     */
    public SweepStatus status() {
        return NativeCalls.status(sweep);
    }

    /**
     * How many key frames the workers have still to do. A camera gives them time enough; what is read from
     * files must be held back (see {@link #holdBack}).
     *
     * @return 0 or more
     * @throws IllegalStateException if the sweep is over
     */
    public int pendingKeyFrames() {
        return status().pendingKeyFrames();
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
        boolean there = NativeCalls.waitForRoom(sweep, keyFrames);
        if (!there && Thread.interrupted()) {
            throw new InterruptedException();
        }
        return there;
    }

    /**
     * Ends the sweep: its workers leave without trace, its memory is released, its directory is removed with
     * everything in it. A {@link #finish} that is inside returns within moments. Does nothing if the sweep is over.
     *
     * <p>May be called from any thread; waits for a call that is inside the library (see above).
     */
    public void cancel() {
        NativeCalls.cancel(sweep);
    }

    /** Ends the sweep as {@link #cancel} does. What {@link #finish} has handed out stays. */
    @Override
    public void close() {
        cancel();
    }

    /** What the native half calls the sweep. */
    long name() {
        return sweep;
    }

    private Panorama finishWith(Frame last, Direction hint, Progress progress) {
        Objects.requireNonNull(hint, "hint is null");
        return NativeCalls.finish(sweep, last.pixels, last.width, last.height, last.rowStride, last.format, hint.code(),
                progress);
    }
}
