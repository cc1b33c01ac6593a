// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.net.URI;
import java.nio.file.FileSystem;
import java.nio.file.FileSystems;
import java.nio.file.Files;
import java.nio.file.Path;
import java.nio.file.Paths;
import java.nio.file.attribute.PosixFilePermissions;
import java.util.Collections;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.function.Executable;
import org.junit.jupiter.api.io.TempDir;

/** What becomes of directories: created, removed, refused. */
class WorkingDirectoryTest {
    @TempDir
    Path root;

    private TarnStitch sweep;

    @AfterEach
    void end() {
        if (sweep != null) {
            sweep.close();
        }
    }

    @Test
    void aMissingDirectoryIsCreatedWithItsParentsSoThatItsOwnerCanEnterIt() throws Exception {
        Path directory = root.resolve("one/two/three");
        sweep = TarnStitch.reset(directory);
        assertTrue(Files.isDirectory(directory));
        for (Path made = directory; !made.equals(root); made = made.getParent()) {
            assertEquals(PosixFilePermissions.fromString("rwx------"), Files.getPosixFilePermissions(made));
        }
        assertTrue(Files.isSameFile(directory.resolve("big_stitch.jpg"), panoramaOfOneFrame()));
    }

    @Test
    void anEmptyDirectoryIsTakenAndRemovedAtTheEnd() throws Exception {
        Path directory = Files.createDirectories(root.resolve("work"));
        sweep = TarnStitch.reset(directory);
        panoramaOfOneFrame();
        sweep.close();
        assertFalse(Files.exists(directory));
        assertTrue(Files.exists(root));
    }

    @Test
    void aDirectoryInWhichAnythingLiesIsRefusedAndUntouchedAndTheSweepBeforeGoesOn() throws Exception {
        sweep = TarnStitch.reset(root.resolve("work"));
        Path holiday = Files.createDirectories(root.resolve("pictures/holiday"));
        isRefused(holiday.getParent());
        assertTrue(Files.exists(holiday));
        assertTrue(Files.isSameFile(root.resolve("work/big_stitch.jpg"), panoramaOfOneFrame()));
    }

    @Test
    void aDirectoryAroundThatOfTheSweepBeforeIsRefusedIfMoreLiesInIt() throws Exception {
        sweep = TarnStitch.reset(root.resolve("work"));
        Path mine = Files.createFile(root.resolve("mine"));
        isRefused(root);
        isRefused(Paths.get("/"));
        assertTrue(Files.exists(mine));
    }

    @Test
    void aPrivateDirectoryLiesWhereTheHostWantsItAndGoesWithItsSweep() throws Exception {
        Path mine = Files.createFile(root.resolve("mine"));
        sweep = TarnStitch.begin(root);
        assertEquals(2, root.toFile().list().length);
        assertTrue(panoramaOfOneFrame().startsWith(root.toRealPath()));
        sweep = TarnStitch.begin(root);
        assertEquals(2, root.toFile().list().length);
        sweep.close();
        assertEquals(1, root.toFile().list().length);
        assertTrue(Files.exists(mine));
    }

    @Test
    void aPrivateDirectoryLiesAmongTheTemporaryFilesOtherwise() throws Exception {
        sweep = TarnStitch.begin();
        Path temporary = Paths.get(System.getProperty("java.io.tmpdir")).toRealPath();
        assertEquals(temporary, panoramaOfOneFrame().getParent().getParent());
    }

    @Test
    void aParentThatIsNoDirectoryIsRefused() throws Exception {
        Path file = Files.createFile(root.resolve("file"));
        for (Path bad : new Path[] {file, root.resolve("nowhere")}) {
            IOException refusal = assertThrows(IOException.class, () -> TarnStitch.begin(bad));
            assertTrue(refusal.getMessage().contains(bad.toString()), refusal.getMessage());
        }
    }

    @Test
    void theSameDirectoryAgainIsEmptiedAndAnotherOneRemovesTheFirst() throws Exception {
        Path first = root.resolve("first");
        sweep = TarnStitch.reset(first);
        Path panorama = panoramaOfOneFrame();
        sweep = TarnStitch.reset(first);
        assertFalse(Files.exists(panorama));
        assertTrue(Files.exists(first));
        sweep = TarnStitch.reset(root.resolve("second"));
        assertFalse(Files.exists(first));
        assertTrue(Files.exists(root.resolve("second")));
    }

    @Test
    void aDirectoryInsideTheOneOfTheSweepBeforeSurvivesItsRemoval() throws Exception {
        sweep = TarnStitch.reset(root.resolve("outer"));
        Path inner = root.resolve("outer/inner");
        sweep = TarnStitch.reset(inner);
        assertTrue(Files.isSameFile(inner.resolve("big_stitch.jpg"), panoramaOfOneFrame()));
    }

    @Test
    void aDirectoryAroundTheOneOfTheSweepBeforeIsTakenWhenNothingElseLiesInIt() throws Exception {
        sweep = TarnStitch.reset(root.resolve("outer/inner"));
        sweep = TarnStitch.reset(root.resolve("outer"));
        assertEquals(0, root.resolve("outer").toFile().list().length);
        assertTrue(Files.isSameFile(root.resolve("outer/big_stitch.jpg"), panoramaOfOneFrame()));
    }

    @Test
    void aRelativePathCountsFromTheCurrentDirectory() throws Exception {
        Path relative = Paths.get("").toAbsolutePath().relativize(root.resolve("work"));
        assertFalse(relative.isAbsolute());
        sweep = TarnStitch.reset(relative);
        Path panorama = panoramaOfOneFrame();
        assertTrue(panorama.isAbsolute());
        assertTrue(Files.isSameFile(root.resolve("work/big_stitch.jpg"), panorama));
    }

    @Test
    void aLinkToADirectoryIsAsGoodAsTheDirectory() throws Exception {
        Files.createDirectory(root.resolve("real"));
        Path link = Files.createSymbolicLink(root.resolve("link"), root.resolve("real"));
        sweep = TarnStitch.reset(link);
        assertTrue(Files.isSameFile(root.resolve("real/big_stitch.jpg"), panoramaOfOneFrame()));
    }

    @Test
    void namesThatTheLocaleCannotSpellAreUsedByteByByte() throws Exception {
        // "a b%ü", an emoji, and a byte that is no UTF-8 at all.
        Path directory = Paths.get(URI.create(root.toUri() + "a%20b%25%C3%BC%F0%9F%98%80%FF"));
        sweep = TarnStitch.reset(directory);
        assertTrue(Files.isSameFile(directory.resolve("big_stitch.jpg"), panoramaOfOneFrame()));
        assertEquals(1, root.toFile().list().length);
    }

    @Test
    void pathsSurviveTheWayToBytesAndBack() {
        String[] paths = {"/", "/a", "/a/b.c-d_e~f", "/%20%25%C3%BC%F0%9F%98%80", "/%01%7F%FF", "/a%2Bb&c=d"};
        for (String spelt : paths) {
            Path path = Paths.get(URI.create("file://" + spelt));
            assertEquals(path, PathBytes.toPath(PathBytes.of(path)), spelt);
        }
    }

    @Test
    void theEmptyPathIsRefused() throws Exception {
        assertThrows(IllegalArgumentException.class, () -> TarnStitch.reset(Paths.get("")));
    }

    @Test
    void aPathInsideAnArchiveIsRefused() throws Exception {
        URI archive = URI.create("jar:" + root.resolve("some.zip").toUri());
        try (FileSystem zip = FileSystems.newFileSystem(archive, Collections.singletonMap("create", "true"))) {
            Path path = zip.getPath("/sweep");
            sweep = TarnStitch.begin(root);
            panoramaOfOneFrame();
            Executable[] calls = {
                () -> TarnStitch.reset(path), () -> TarnStitch.begin(path), () -> sweep.finish().writeTo(path)};
            for (Executable call : calls) {
                assertEquals("the path /sweep is not in the default file system",
                        assertThrows(IllegalArgumentException.class, call).getMessage());
            }
        }
    }

    @Test
    void aDirectoryThatCannotBeCreatedLeavesTheSweepBeforeInPlace() throws Exception {
        sweep = TarnStitch.reset(root.resolve("work"));
        Path file = Files.createFile(root.resolve("file"));
        assertThrows(IOException.class, () -> TarnStitch.reset(file));
        assertThrows(IOException.class, () -> TarnStitch.reset(file.resolve("below")));
        assertThrows(IOException.class, () -> TarnStitch.reset(Paths.get("/proc/nowhere/sweep")));
        assertTrue(Files.exists(file));
        assertTrue(Files.isSameFile(root.resolve("work/big_stitch.jpg"), panoramaOfOneFrame()));
    }

    @Test
    void aDirectoryThatVanishesInMidSweepLeavesNoPanorama() throws Exception {
        sweep = TarnStitch.reset(root.resolve("work"));
        Files.delete(root.resolve("work"));
        sweep.stitch(Frames.madeUp(320, 240, 0), 320, 240, 1280, Direction.NONE, true);
        assertFalse(sweep.panorama().isPresent());
    }

    private static void isRefused(Path directory) {
        IOException refusal = assertThrows(IOException.class, () -> TarnStitch.reset(directory));
        assertTrue(refusal.getMessage().startsWith("the directory " + directory), refusal.getMessage());
    }

    private Path panoramaOfOneFrame() throws IOException {
        sweep.stitch(Frames.madeUp(320, 240, 0), 320, 240, 1280, Direction.NONE, true);
        return sweep.panorama().get();
    }
}
