// SPDX-License-Identifier: Apache-2.0

import java.awt.image.BufferedImage;
import java.io.File;
import javax.imageio.ImageIO;

/** Prints the width and the height of an image. */
final class ImageSize {
    public static void main(String[] args) throws Exception {
        BufferedImage image = ImageIO.read(new File(args[0]));
        System.out.println(image.getWidth() + " " + image.getHeight());
    }
}
