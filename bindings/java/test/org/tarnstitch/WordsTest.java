// SPDX-License-Identifier: Apache-2.0
package org.tarnstitch;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.util.Arrays;
import java.util.Locale;
import java.util.Map;
import java.util.TreeMap;
import java.util.regex.Matcher;
import java.util.regex.Pattern;
import org.junit.jupiter.api.Test;

/** The words: codes, directions, reasons, and what the user is told. */
class WordsTest {
    @Test
    void resultsDirectionsAndReasonsHaveTheLibrarysNumbersAndNames() throws Exception {
        Map<String, Integer> results = new TreeMap<>();
        for (FrameResult result : FrameResult.values()) {
            assertEquals(result, FrameResult.of(result.code()));
            String name = result == FrameResult.FAILED ? "PIPELINE_FAILED" : result.name();
            results.put("CODE_" + name, result.code());
        }
        assertEquals(declared("answer_code"), results);
        Map<String, Integer> directions = new TreeMap<>();
        for (Direction direction : Direction.values()) {
            assertEquals(direction, Direction.of(direction.code()));
            String name = direction == Direction.NONE ? "UNDECIDED" : direction.name();
            directions.put("DIRECTION_" + name, direction.code());
        }
        assertEquals(declared("direction_code"), directions);
        Map<String, Integer> reasons = new TreeMap<>();
        for (Reason reason : Reason.values()) {
            assertEquals(reason, Reason.of(reason.code()));
            reasons.put(reason.name(), reason.code());
        }
        assertEquals(declared("reason"), reasons);
    }

    @Test
    void extentsHaveTheLibrarysNumbersAndNames() throws Exception {
        Map<String, Integer> extents = new TreeMap<>();
        for (Panorama.Extent extent : Panorama.Extent.values()) {
            extents.put(extent.name(), extent.ordinal());
        }
        assertEquals(declared("panorama_extent"), extents);
    }

    @Test
    void aCodeThatTheLibraryDoesNotHaveIsNoResult() {
        assertThrows(IllegalStateException.class, () -> FrameResult.of(-2));
        assertThrows(IllegalStateException.class, () -> FrameResult.of(7));
    }

    @Test
    void theUserIsToldWhatTheLibraryAdvises() {
        for (FrameResult result : FrameResult.values()) {
            assertEquals(result == FrameResult.NORMAL, result.userMessage().isEmpty());
            isSentence(result.userMessage());
        }
        assertEquals("Hold the device level.", FrameResult.SKEWED.userMessage());
        for (Reason reason : Reason.values()) {
            assertFalse(reason.text().isEmpty());
            assertFalse(reason.text().equals("unknown"), reason.name());
            isSentence(reason.userMessage());
        }
        assertEquals("too few matches", Reason.TOO_FEW_MATCHES.text());
        assertEquals("Move the camera slowly and evenly.", Direction.NONE.userMessage());
        assertEquals("Move the camera slowly to the right.", Direction.RIGHT.userMessage());
        for (Direction direction : Direction.values()) {
            isSentence(direction.userMessage());
            assertFalse(direction.userMessage().contains("unknown"), direction.name());
        }
    }

    @Test
    void theDocumentShowsTheWordsThatTheUserIsTold() throws Exception {
        String document =
                new String(Files.readAllBytes(Setup.SOURCES.resolve("docs/android.md")), StandardCharsets.UTF_8);
        for (FrameResult result : FrameResult.values()) {
            Matcher line = Pattern.compile("\\| " + result.code() + " \\| `" + result + "` \\|[^|]*\\|([^|]*)\\|")
                                   .matcher(document);
            assertTrue(line.find(), result.name());
            String said = result.userMessage().isEmpty() ? " nothing " : " \"" + result.userMessage() + "\"";
            assertTrue(line.group(1).startsWith(said), line.group());
        }
    }

    @Test
    void turningAFrameUprightTakesTheHintBackToWhatTheUserSees() {
        // Turned clockwise by 90 degrees, up becomes right, right becomes down, and so on.
        Direction[] clockwise = {Direction.UP, Direction.RIGHT, Direction.DOWN, Direction.LEFT};
        for (int seen = 0; seen < 4; ++seen) {
            for (int quarterTurns = 0; quarterTurns < 4; ++quarterTurns) {
                Direction inFrames = clockwise[seen].inFrames(90 * quarterTurns);
                int before = Arrays.asList(clockwise).indexOf(inFrames);
                assertEquals(seen, (before + quarterTurns) % 4);
            }
        }
    }

    @Test
    void noDirectionStaysNoneHoweverTheFrameIsTurned() {
        for (int degrees = 0; degrees < 360; degrees += 90) {
            assertEquals(Direction.NONE, Direction.NONE.inFrames(degrees));
        }
    }

    @Test
    void anglesOtherThanQuarterTurnsAreRefused() {
        for (int degrees : new int[] {-90, 1, 360}) {
            IllegalArgumentException refusal =
                    assertThrows(IllegalArgumentException.class, () -> Direction.UP.inFrames(degrees));
            assertEquals(
                    "rotationDegrees is " + degrees + "; it must be 0, 90, 180 or 270", refusal.getMessage());
        }
    }

    private static void isSentence(String text) {
        assertTrue(text.matches("|[A-Z].*[^.]\\."), text);
    }

    /** The names and numbers of an enumeration in the library's headers. */
    private static Map<String, Integer> declared(String enumeration) throws Exception {
        StringBuilder headers = new StringBuilder();
        for (String name : new String[] {"vocabulary.h", "tarn_sweep.h"}) {
            headers.append(new String(Files.readAllBytes(Setup.SOURCES.resolve("TarnStitchSDK").resolve(name)),
                    StandardCharsets.UTF_8));
        }
        Matcher body = Pattern.compile("enum (?:class )?" + enumeration + " : int \\{(.*?)\\};", Pattern.DOTALL)
                               .matcher(headers);
        assertTrue(body.find(), enumeration);
        Matcher value = Pattern.compile("(\\w+) = (-?\\d+)").matcher(body.group(1).replaceAll("//.*", ""));
        Map<String, Integer> values = new TreeMap<>();
        while (value.find()) {
            values.put(value.group(1).toUpperCase(Locale.ROOT), Integer.valueOf(value.group(2)));
        }
        return values;
    }
}
