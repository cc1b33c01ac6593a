// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import java.io.IOException;
import java.net.URI;
import java.nio.ByteBuffer;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;

/** A program that tests start in a virtual machine of its own: {@code Probe WHAT DIRECTORY_URI}. */
public final class Probe {
    private static final int WIDTH = 426;
    private static final int HEIGHT = 320;

    private Probe() {}

    public static void main(String[] args) throws Exception {
        Path directory = Paths.get(URI.create(args[1]));
        switch (args[0]) {
            case "panorama":
                panorama(directory);
                break;
            case "memory":
                memory(directory);
                break;
            case "return":
                stitchInTheBackground(directory, false);
                break; // and the process ends, while a thread is inside
            case "return-from-last":
                stitchInTheBackground(directory, true);
                break;
            case "exit":
                stitchInTheBackground(directory, false);
                System.exit(7);
                break;
            default:
                throw new IllegalArgumentException(args[0]);
        }
    }

    private static void panorama(Path directory) throws IOException, InterruptedException {
        try (TarnStitch sweep = TarnStitch.reset(directory)) {
            sweep.stitch(Frames.madeUp(WIDTH, HEIGHT, 0), WIDTH, HEIGHT, 4 * WIDTH, Direction.NONE, true);
            if (!Files.isSameFile(sweep.panorama().get(), directory.resolve("big_stitch.jpg"))) {
                throw new AssertionError(sweep.panorama());
            }
        }
    }

    private static void stitchInTheBackground(Path directory, boolean last) throws Exception {
        TarnStitch sweep = TarnStitch.reset(directory);
        ByteBuffer[] frames = new ByteBuffer[8];
        for (int i = 0; i < frames.length; ++i) {
            frames[i] = Frames.madeUp(WIDTH, HEIGHT, 30 * i);
        }
        Thread thread = new Thread(() -> {
            for (int i = 0;; ++i) {
                sweep.stitch(
                        frames[i % frames.length], WIDTH, HEIGHT, 4 * WIDTH, Direction.NONE, last && i > 3);
            }
        });
        thread.setDaemon(true);
        thread.start();
        while (sweep.preview().isEmpty()) {
            Thread.yield();
        }
    }

    /**
     * 200 sweeps of 50 frames, most in the middle of their work when the next one begins. Prints the memory that
     * the process occupies, in KiB, after every ten, when no worker has an image of its own.
     */
    private static void memory(Path directory) throws IOException, InterruptedException {
        int sweeps = 200;
        ByteBuffer[] frames = new ByteBuffer[50];
        for (int i = 0; i < frames.length; ++i) {
            frames[i] = Frames.madeUp(WIDTH, HEIGHT, 8 * i);
        }
        long pixels = 0;
        for (int i = 1; i <= sweeps; ++i) {
            TarnStitch sweep = TarnStitch.reset(directory);
            for (ByteBuffer frame : frames) {
                sweep.stitch(frame, WIDTH, HEIGHT, 4 * WIDTH, Direction.NONE, false);
                pixels += sweep.preview().pixels().length;
            }
            if (i % 10 == 0) {
                sweep.holdBack(0);
                System.gc();
                System.err.println("resident " + residentKiB());
            }
        }
        System.err.println("pixels " + pixels);
    }

    private static long residentKiB() throws IOException {
        for (String line : Files.readAllLines(Paths.get("/proc/self/status"))) {
            if (line.startsWith("VmRSS:")) {
                return Long.parseLong(line.replaceAll("[^0-9]", ""));
            }
        }
        throw new IOException("/proc/self/status has no VmRSS");
    }
}
