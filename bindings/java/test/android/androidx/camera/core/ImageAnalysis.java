// SPDX-License-Identifier: Apache-2.0
package androidx.camera.core;

import java.util.concurrent.Executor;

/** Stands in for the camera library's class of this name, with the signatures that the sample uses. */
public final class ImageAnalysis {
    public static final int STRATEGY_KEEP_ONLY_LATEST = 0;
    public static final int OUTPUT_IMAGE_FORMAT_RGBA_8888 = 2;

    /** Set by the builder; for tests to look at. */
    public final int outputImageFormat;

    public final int backpressureStrategy;
    public Executor executor;
    public Analyzer analyzer;

    private ImageAnalysis(Builder builder) {
        outputImageFormat = builder.outputImageFormat;
        backpressureStrategy = builder.backpressureStrategy;
    }

    public void setAnalyzer(Executor executor, Analyzer analyzer) {
        this.executor = executor;
        this.analyzer = analyzer;
    }

    public interface Analyzer {
        void analyze(ImageProxy image);
    }

    public static final class Builder {
        private int outputImageFormat = 1;
        private int backpressureStrategy = 1;

        public Builder setOutputImageFormat(int format) {
            outputImageFormat = format;
            return this;
        }

        public Builder setBackpressureStrategy(int strategy) {
            backpressureStrategy = strategy;
            return this;
        }

        public ImageAnalysis build() {
            return new ImageAnalysis(this);
        }
    }
}
