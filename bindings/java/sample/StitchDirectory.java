// SPDX-License-Identifier: Apache-2.0

import java.awt.image.BufferedImage;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.nio.file.StandardCopyOption;
import java.util.List;
import java.util.stream.Collectors;
import java.util.stream.Stream;
import javax.imageio.ImageIO;
import org.tarnstitch.Direction;
import org.tarnstitch.FrameResult;
import org.tarnstitch.TarnStitch;
import org.tarnstitch.desktop.BufferedImages;

/** Stitches the upright images of a directory, in the order of their names, into a panorama and its preview. */
public final class StitchDirectory {
    public static void main(String[] args) throws IOException, InterruptedException {
        if (args.length != 2) {
            System.err.println("usage: StitchDirectory IMAGES OUTPUT");
            System.exit(2);
        }
        List<Path> files;
        try (Stream<Path> entries = Files.list(Paths.get(args[0]))) {
            files = entries.filter(file -> file.toString().matches("(?i).*\\.(jpe?g|png)"))
                    .sorted()
                    .collect(Collectors.toList());
        }
        if (files.isEmpty()) {
            throw new IOException("there are no images in " + args[0]);
        }
        Path output = Files.createDirectories(Paths.get(args[1]));
        try (TarnStitch sweep = TarnStitch.reset(Files.createTempDirectory("sweep"))) {
            for (int i = 0; i < files.size(); ++i) {
                // The library takes frames lying on their side, as a camera's sensor delivers them.
                BufferedImage frame = BufferedImages.turned(ImageIO.read(files.get(i).toFile()), 270);
                int rowStride = 4 * frame.getWidth();
                boolean last = i == files.size() - 1;
                FrameResult result = sweep.stitch(BufferedImages.toFrame(frame), frame.getWidth(),
                        frame.getHeight(), rowStride, Direction.NONE, last);
                if (result != FrameResult.NORMAL) {
                    System.err.println(files.get(i).getFileName() + ": " + result.userMessage());
                }
                sweep.holdBack(2); // files come faster than a camera's frames
            }
            Path panorama = sweep.panorama().orElseThrow(() -> new IOException("there is no panorama"));
            Files.copy(panorama, output.resolve("panorama.jpg"), StandardCopyOption.REPLACE_EXISTING);
            if (!sweep.preview().isEmpty()) { // as it is when there was just one image, or none with details
                BufferedImage preview = BufferedImages.turned(BufferedImages.toImage(sweep.preview()), 90);
                ImageIO.write(preview, "png", output.resolve("preview.png").toFile());
            }
            System.err.println("The panorama and its preview are in " + output);
        }
    }
}
