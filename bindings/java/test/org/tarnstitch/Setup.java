// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import java.io.File;
import java.io.IOException;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collections;
import java.util.List;

/** What the build tells the tests, and programs to run. */
final class Setup {
    static final Path SAMPLES = Paths.get(property("tarn.samples"));
    static final Path SOURCES = Paths.get(property("tarn.sources"));
    static final String REFERENCE_HOST = property("tarn.reference_host");
    static final String JAR = property("tarn.jar");
    static final String CLASSES = property("tarn.classes");

    private Setup() {}

    private static String property(String name) {
        String value = System.getProperty(name);
        if (value == null) {
            throw new IllegalStateException("start the tests with -D" + name + "=...");
        }
        return value;
    }

    /** A command that starts this virtual machine again. */
    static List<String> java(String... arguments) {
        List<String> command = new ArrayList<>();
        command.add(Paths.get(System.getProperty("java.home"), "bin", "java").toString());
        Collections.addAll(command, "-Xcheck:jni", "-XX:+DisplayVMOutputToStderr");
        command.addAll(Arrays.asList(arguments));
        return command;
    }

    /** A class path. */
    static String path(String... entries) {
        return String.join(File.pathSeparator, entries);
    }

    /** Runs a command to its end; its standard output, which is the library's, is dropped. */
    static Ended run(List<String> command, String... environment) throws IOException, InterruptedException {
        ProcessBuilder builder = new ProcessBuilder(command);
        builder.redirectOutput(new File("/dev/null"));
        for (int i = 0; i < environment.length; i += 2) {
            builder.environment().put(environment[i], environment[i + 1]);
        }
        Process process = builder.start();
        String errors = new String(process.getErrorStream().readAllBytes(), "UTF-8");
        return new Ended(process.waitFor(), errors);
    }

    /** How a program ended. */
    static final class Ended {
        final int exitCode;
        final String errors;

        Ended(int exitCode, String errors) {
            this.exitCode = exitCode;
            this.errors = errors;
        }

        @Override
        public String toString() {
            return "exit code " + exitCode + ", standard error:\n" + errors;
        }
    }
}
