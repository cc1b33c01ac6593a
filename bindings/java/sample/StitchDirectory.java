// SPDX-License-Identifier: Apache-2.0

import java.awt.image.BufferedImage;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.util.List;
import java.util.stream.Collectors;
import java.util.stream.Stream;
import javax.imageio.ImageIO;
import org.tarnstitch.Direction;
import org.tarnstitch.Frame;
import org.tarnstitch.FrameResult;
import org.tarnstitch.Panorama;
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
        try (TarnStitch sweep = TarnStitch.begin()) {
            for (Path file : files.subList(0, files.size() - 1)) {
                FrameResult result = sweep.feed(frameOf(file), Direction.NONE).result();
                if (result != FrameResult.NORMAL) {
                    System.err.println(file.getFileName() + ": " + result.userMessage());
                }
                sweep.holdBack(2); // files come faster than a camera's frames
            }
            Frame last = frameOf(files.get(files.size() - 1));
            Panorama panorama = sweep.finish(last, Direction.NONE, (done, keyFrames) -> true);
            panorama.writeTo(output.resolve("panorama.jpg")); // throws and says why if there is none
            if (!sweep.preview().isEmpty()) { // as it is when there was just one image, or none with details
                BufferedImage preview = BufferedImages.turned(BufferedImages.toImage(sweep.preview()), 90);
                ImageIO.write(preview, "png", output.resolve("preview.png").toFile());
            }
            System.err.println("The panorama and its preview are in " + output);
        }
    }

    private static Frame frameOf(Path file) throws IOException {
        // The library takes frames lying on their side, as a camera's sensor delivers them.
        BufferedImage image = BufferedImages.turned(ImageIO.read(file.toFile()), 270);
        return Frame.rgba(BufferedImages.toFrame(image), image.getWidth(), image.getHeight(), 0);
    }
}
