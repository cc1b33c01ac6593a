// SPDX-License-Identifier: Apache-2.0
//
// One sweep of the camera for hosts in C, and in every language that speaks it: from the first frame to the panorama.
// C99 and C++; neither OpenCV nor an exception shows here.
//
//     tarn_sweep* sweep;
//     if (tarn_sweep_begin(NULL, &sweep) != TARN_OK)
//         give up: tarn_last_error() says why
//     tarn_image frame;
//     TARN_INIT(frame);
//     frame.width = …, frame.height = …, frame.format = TARN_FORMAT_RGBA;
//     tarn_answer answer;
//     TARN_INIT(answer);
//     for each frame of the camera:
//         frame.pixels = …
//         if (tarn_sweep_feed(sweep, &frame, TARN_DIRECTION_UNDECIDED, &answer) == TARN_OK)
//             tell the user tarn_code_advice(answer.code); show tarn_sweep_preview()
//     tarn_panorama* panorama;
//     if (tarn_sweep_finish(sweep, NULL, &panorama) == TARN_OK)
//         tarn_panorama_save(panorama, "panorama.jpg");
//     tarn_panorama_free(panorama);
//     tarn_sweep_free(sweep);
//
// Handles: tarn_sweep, tarn_picture and tarn_panorama are handed out by functions with a pointer to a pointer as their
// parameter, and are the host's from then on: each is freed once, by the function of its name, in any order. All that
// a function gives by address (pixels, bytes, texts) lies with the handle that it was asked of, is only to be read, and
// stays until that is freed. A handle is a number in disguise and points nowhere. One that is null, was freed or never
// was is answered TARN_ERROR_NO_SUCH_HANDLE, and freeing it does nothing.
//
// Structures begin with their size, so that they can grow at their ends. TARN_INIT sets it and clears the rest, which
// makes every member its default. Host and library may be of different versions: what an older host has no member for
// takes its default or is not told; what an older library does not know is refused unless it is 0
// (TARN_ERROR_UNSUPPORTED), or told as 0.
//
// Failure: functions that can fail return a tarn_result, which is TARN_OK or one of enum tarn_error, and
// tarn_last_error
// has the text. Handles that such a call should have given are then null, and structures are as they were. What
// becomes of a frame or of the panorama is no failure but a value, in tarn_answer and tarn_panorama_info.
//
// One at a time: the library works on one sweep per process. Beginning another one ends the one before, wherever it
// was; its functions then answer TARN_ERROR_OVER, and its handle is freed all the same. Panoramas and pictures outlive
// their sweep.
//
// Threads: every function may be called from any thread at any time.
//   tarn_sweep_feed            while another call is inside, or somebody waits to begin or to cancel: not taken, at
//                              once; TARN_CODE_LOST, TARN_REASON_BUSY, or TARN_CODE_PIPELINE_FAILED where that has
//                              failed anyway
//   tarn_sweep_finish          waits for the call inside, then goes on
//   tarn_sweep_begin, tarn_sweep_cancel, tarn_sweep_free
//                              wait for the call inside; one that waits for workers is told to give up first
//   all others                 never wait for a frame: they see what there was after the last call that has returned
// A handle may be freed while another thread's call uses it: that call ends in order.
//
// Callbacks run on the thread of the call that they were given to, which goes on when they return. Their first
// parameter is what the host gave as `user`. What they are handed by address is theirs until they return. They may call
// everything but tarn_sweep_begin, tarn_sweep_feed and tarn_sweep_finish, which answer TARN_ERROR_IN_CALLBACK;
// tarn_sweep_cancel and tarn_sweep_free take effect when the call returns.
//
// Waits: every one is bounded.
//
// Texts are UTF-8 or what a path was given as, and end with a NUL. Flags are 0 or 1.
//
// Coordinates: x is the column, y the row, y grows downward; (0, 0) is the centre of the top-left pixel. Corners come
// as x, y of the top-left, top-right, bottom-right and bottom-left one. Frames are taken as the sensor of a device held
// upright delivers them, lying on their side: the panorama is rotated by 90 degrees clockwise against the frames, the
// preview is not.
//
// The shared library stays in the process once it is loaded: closing it (dlclose) is harmless, and does nothing.
#pragma once

#include <stddef.h>  // NOLINT(modernize-deprecated-headers): C has these two only
#include <string.h>  // NOLINT(modernize-deprecated-headers)

#ifdef __cplusplus
extern "C" {
#endif

/* The version. */

#define TARN_VERSION_MAJOR 1         ///< of this header: another one is another interface
#define TARN_VERSION_MINOR 0         ///< of this header: has grown
#define TARN_VERSION_PATCH 0         ///< of this header: has been mended
#define TARN_VERSION_STRING "1.0.0"  ///< of this header
/// The version of this header as one number, to compare with tarn_version_number().
#define TARN_VERSION_NUMBER (TARN_VERSION_MAJOR * 10000 + TARN_VERSION_MINOR * 100 + TARN_VERSION_PATCH)

/// The version of the library that runs, as "1.0.0". Static storage.
const char* tarn_version(void);

/// The same as TARN_VERSION_NUMBER was when the library was built: 10000 times major, 100 times minor, patch.
int tarn_version_number(void);

/* Failure. */

/// TARN_OK, or one of enum tarn_error. An int, whatever the compiler makes of enumerations.
typedef int tarn_result;  // NOLINT(modernize-use-using): C

/// What went wrong with a call.
enum tarn_error {
    TARN_OK = 0,                         ///< nothing
    TARN_ERROR_BAD_ARGUMENT = 1,         ///< the text names the argument and its value
    TARN_ERROR_OVER = 2,                 ///< the sweep was cancelled, or another one was begun after it
    TARN_ERROR_DIRECTORY_NOT_EMPTY = 3,  ///< something lies in the directory that a sweep should use
    TARN_ERROR_DIRECTORY_UNUSABLE = 4,   ///< it cannot be made, or not be read and written, or nobody may empty it
    TARN_ERROR_NO_PANORAMA = 5,          ///< there is none; tarn_panorama_get_info says why
    TARN_ERROR_NO_MEMORY = 6,            ///< memory is short
    TARN_ERROR_DISK = 7,                 ///< a file could not be written
    TARN_ERROR_PROCESS_ENDS = 8,         ///< or it was forked off, or another copy of the library has the sweep
    TARN_ERROR_NO_SUCH_HANDLE = 100,     ///< a handle is null, was freed, or is none of the kind that is asked for
    TARN_ERROR_UNSUPPORTED = 101,        ///< a structure asks for what only a newer library has
    TARN_ERROR_IN_CALLBACK = 102,        ///< a call from a callback that could only wait for itself
    TARN_ERROR_UNEXPECTED = 103          ///< anything else; the text is that of the C++ exception
};

/// A name in lower case, as "bad argument"; "unknown" for a number that has none. Static storage.
const char* tarn_result_name(tarn_result result);

/// What the last call of this thread that failed had to say, in one line; "" if none has. Until the thread's next call
/// that fails.
const char* tarn_last_error(void);

/* The words: the numbers of codes, directions, states and reasons, their names, and what to tell the user. */

/// What a frame is answered.
enum tarn_code {
    TARN_CODE_PIPELINE_FAILED = -1,  ///< the high-resolution pipeline has failed; the frame was dropped
    TARN_CODE_LOST = 0,              ///< ten frames in a row were rejected, or another call is still inside
    TARN_CODE_NORMAL = 1,            ///< taken; or rejected, but not for long yet
    TARN_CODE_FEW_DETAILS = 2,       ///< taken with 20 to 49 inliers
    TARN_CODE_VERY_FEW_DETAILS = 3,  ///< taken with fewer than 20 inliers
    TARN_CODE_WRONG_WAY = 4,         ///< rejected: motion against the hint
    TARN_CODE_TOO_FAST = 5,          ///< taken; mean motion above 10 px of a frame 300 px wide
    TARN_CODE_SKEWED = 6             ///< taken, but skewed
};

/// A direction of the camera's motion, as a hint and as a measurement, in the frames' own coordinates.
enum tarn_direction {
    TARN_DIRECTION_UNDECIDED = 0,  ///< as a hint: any direction is welcome
    TARN_DIRECTION_DOWN = 1,       ///< opposite of up
    TARN_DIRECTION_UP = 2,         ///< opposite of down
    TARN_DIRECTION_RIGHT = 3,      ///< opposite of left
    TARN_DIRECTION_LEFT = 4        ///< opposite of right
};

/// What the high-resolution pipeline is at.
enum tarn_pipeline {
    TARN_PIPELINE_EMPTY = 0,  ///< no panorama yet
    TARN_PIPELINE_BUSY = 2,   ///< a worker holds its turn
    TARN_PIPELINE_READY = 3,  ///< the last turn ended well
    TARN_PIPELINE_FAILED = 4  ///< the last turn failed, or a frame or a wait for its turn did
};

/// Why a frame was not taken, a key frame could not be joined, or a panorama could not be had.
enum tarn_reason {
    TARN_REASON_NONE = 0,               ///< there is nothing to explain
    TARN_REASON_BUSY = 1,               ///< another call was inside
    TARN_REASON_PIPELINE_FAILED = 2,    ///< the panorama had failed before
    TARN_REASON_TOO_FEW_CORNERS = 3,    ///< the frame shows too few corners
    TARN_REASON_TOO_FEW_TRACKED = 4,    ///< too few of the corners of the frame before were found again
    TARN_REASON_IMPLAUSIBLE_SHAPE = 5,  ///< the frame, mapped, is no plausible view
    TARN_REASON_TOO_FEW_INLIERS = 6,    ///< too small a share of the points agrees on one motion
    TARN_REASON_AGAINST_THE_HINT = 7,   ///< the camera goes the other way
    TARN_REASON_NOT_CONVEX = 8,         ///< the frame, mapped into the preview, is no convex quadrilateral
    TARN_REASON_OUT_OF_SCALE = 9,       ///< a side of it is shorter than 2 px or longer than 4000 px
    TARN_REASON_UNUSABLE_FRAME = 10,    ///< an error of OpenCV: tarn_answer.detail
    TARN_REASON_TOO_FEW_MATCHES = 11,   ///< a key frame has fewer than 20 matches with the one before
    TARN_REASON_NO_HOMOGRAPHY = 12,     ///< its matches agree on no motion
    TARN_REASON_SHAPE_REFUSED = 13,     ///< mapped into the panorama, it is no convex quadrilateral
    TARN_REASON_TOO_LARGE = 14,         ///< the panorama would exceed 10000 px
    TARN_REASON_TIMED_OUT = 15,         ///< a turn did not come in time
    TARN_REASON_NO_MEMORY = 16,         ///< memory was short
    TARN_REASON_NO_THREAD = 17,         ///< no thread could be started
    TARN_REASON_DISK = 18,              ///< a file or directory could not be written
    TARN_REASON_CANCELLED = 19,         ///< the sweep was cancelled, or a callback ended the wait
    TARN_REASON_PROCESS_ENDS = 20,      ///< or it was forked off, or another copy of the library has the sweep
    TARN_REASON_NO_FRAMES = 21          ///< nothing was handed over that a panorama could be made of
};

/// A name in lower case, as "few details"; "unknown" for a number that has none. All of these are static storage.
const char* tarn_code_name(int code);

/// What to tell the user, as "hold the device level"; "" where there is nothing to do.
const char* tarn_code_advice(int code);

/// As "to the right"; "unknown" for a number that has none.
const char* tarn_direction_name(int direction);

/// As "busy"; "unknown" for a number that has none.
const char* tarn_pipeline_name(int state);

/// A short clause, as "too few matches"; "unknown" for a number that has none.
const char* tarn_reason_name(int reason);

/// What would help against it, as "more texture, more light"; "" where nothing does.
const char* tarn_reason_advice(int reason);

/* Structures. */

/// Clears a structure of this header and sets its size; as a statement: `tarn_image frame; TARN_INIT(frame);`
#define TARN_INIT(structure) (memset(&(structure), 0, sizeof(structure)), (void)((structure).size = sizeof(structure)))

/// How the bytes of a pixel lie. Alpha is ignored.
enum tarn_format {
    TARN_FORMAT_RGBA = 1,  ///< 4 bytes: red, green, blue, alpha
    TARN_FORMAT_BGRA = 2,  ///< 4 bytes: blue, green, red, alpha
    TARN_FORMAT_BGR = 3,   ///< 3 bytes: blue, green, red
    TARN_FORMAT_GRAY = 4   ///< 1 byte
};

// NOLINTBEGIN(modernize-use-using): C

typedef struct tarn_sweep tarn_sweep;        ///< a handle: one sweep; tarn_sweep_free
typedef struct tarn_picture tarn_picture;    ///< a handle: pixels that never change; tarn_picture_free
typedef struct tarn_panorama tarn_panorama;  ///< a handle: the end of a sweep; tarn_panorama_free

/// A view of pixels: a frame where it lies, or what a handle holds. A frame is only read, and not needed any more when
/// the call returns.
typedef struct tarn_image {
    size_t size;         ///< of this structure
    const void* pixels;  ///< first byte of the top row
    int width;           ///< px; of a frame 1 to 16384
    int height;          ///< px; of a frame 1 to 16384
    size_t row_stride;   ///< bytes from row to row, at least width times the bytes of a pixel; of a frame also 0: no
                         ///< padding. The last row needs none behind it
    int format;          ///< of enum tarn_format
} tarn_image;

/// A frame that was given to a worker, for a host that wants to do something with it later.
typedef struct tarn_key_frame {
    size_t size;  ///< of this structure, in the library's version
    tarn_picture*
        picture;  ///< full size, TARN_FORMAT_BGR. The library's: tarn_picture_keep gives one of the host's own
    int number;   ///< 1, 2, 3, … in the sweep
    int placed;   ///< 0 for a last frame, which is composed without being registered live
    /// Row by row: maps the frame, scaled to the working size, into the plane of the sweep's first frame, scaled
    /// likewise. Fixed for the whole sweep, however the preview grows. Of a frame that is placed.
    double plane_from_frame[9];
    int working_width;   ///< px, of the live path's copy: at most 300; 0 if it is not placed
    int working_height;  ///< px
} tarn_key_frame;

/// How a sweep is to be done. All of it may be left 0.
typedef struct tarn_sweep_options {
    size_t size;  ///< of this structure
    /// Where the sweep keeps its files until it ends, when it removes them and the directory. Null or "": a private
    /// directory, made and removed by the sweep. Otherwise one that is empty or missing; a missing one is made, parents
    /// included, with mode 0700. One in which anything lies is refused.
    const char* directory;
    /// Where a private directory is made. Null or "": the system's directory for temporary files.
    const char* private_parent;
    void* user;  ///< handed to the callbacks
    /// Called again and again while tarn_sweep_feed or tarn_sweep_finish waits for workers, with the number of key
    /// frames under way; 0 ends the wait: the frame is not handed over, a finish gives what there is.
    int (*while_waiting)(void* user, int under_way);
    /// Is given each key frame as it goes to its worker, before the call returns.
    void (*on_key_frame)(void* user, const tarn_key_frame* key_frame);
    /// Is given the log of each call. Null: nothing is written. Standard output stays untouched.
    void (*on_log)(void* user, const char* text);
    /// Key frames that may be under way at once, that of the frame that is handed over included. 0: as many as come,
    /// for a camera, whose frames cannot wait. For a file 1 or more: tarn_sweep_feed waits for room first, and for the
    /// workers when the pipeline seems to have failed, since one that was waiting for its turn may bring it back;
    /// tarn_sweep_finish waits for all of them before it hands a last frame over.
    int most_under_way;
} tarn_sweep_options;

/// What became of one frame. Everything is in the frames' own orientation.
typedef struct tarn_answer {
    size_t size;          ///< of this structure
    int code;             ///< of enum tarn_code
    int why;              ///< of enum tarn_reason: why it was not taken
    int taken;            ///< registered, or composed: the panorama and the sweep go on from it
    int key_frame;        ///< its number among the key frames, from 1, if it was given to a worker; else 0
    int key_frames;       ///< given to workers so far
    int registered;       ///< compared with the frame taken before, so that what follows was measured
    int direction;        ///< of enum tarn_direction, of the frame taken last
    float move_distance;  ///< px of a frame scaled to a width of 300, from the frame taken before
    int corners_found;    ///< in this frame
    int corners_tracked;  ///< of the reference's, found again
    int inliers;          ///< of these, that agree on one motion
    float overlap;        ///< with the last key frame, 0 to 1; below 0.7 a frame becomes one
    int placed;           ///< the frame was taken and lies in the preview
    float
        outline[8];   ///< corners of the frame taken last, in the preview; may reach beyond it until the next key frame
    float angles[4];  ///< degrees, of the frame measured last, mapped into the last key frame: its corners
    float scales[4];  ///< its sides, top first, clockwise, over a frame's own
    double milliseconds;  ///< spent in the library on it, waits for room not included
    char detail[256];     ///< what OpenCV said of an unusable frame, cut to fit; else ""
} tarn_answer;

/// Where a sweep stands.
typedef struct tarn_status {
    size_t size;                 ///< of this structure
    int key_frames;              ///< given to workers so far
    int under_way;               ///< of these, those whose turn is not over
    int pipeline;                ///< of enum tarn_pipeline
    int first_failed_key_frame;  ///< that could not be joined, from 1; 0 if all could
    int why;                     ///< of enum tarn_reason: why it could not
} tarn_status;

/// What belongs to the pixels of a preview.
typedef struct tarn_preview_info {
    size_t size;       ///< of this structure
    int has_outline;   ///< a frame has been taken
    int frozen;        ///< has reached its greatest size: registration and the panorama go on, it does not grow
    float outline[8];  ///< corners of the frame taken last; may reach beyond the preview
} tarn_preview_info;

/// How a sweep is to be finished. All of it may be left 0.
typedef struct tarn_finish_options {
    size_t size;                   ///< of this structure
    const tarn_image* last_frame;  ///< is composed without being registered, wherever it lies; null: none
    void* user;                    ///< handed to the callback
    /// Told of the key frames whose turns are over, again and again; 0 ends the wait, and what there is by then is the
    /// result.
    int (*on_progress)(void* user, int done, int key_frames);
    int hint;  ///< of enum tarn_direction, for the last frame
} tarn_finish_options;

/// How much of the sweep a panorama holds.
enum tarn_extent {
    TARN_EXTENT_MISSING = 0,  ///< there is none
    TARN_EXTENT_PARTIAL = 1,  ///< it ends where a key frame could not be joined, or the wait was ended
    TARN_EXTENT_WHOLE = 2     ///< it reaches to the end of the sweep; see first_failed_key_frame
};

/// What there is to know of a panorama beside its pixels.
typedef struct tarn_panorama_info {
    size_t size;                 ///< of this structure
    int extent;                  ///< of enum tarn_extent
    int why;                     ///< of enum tarn_reason: why it is not whole; of a whole one TARN_REASON_DISK where
                                 ///< its file could not be written
    int first_failed_key_frame;  ///< that could not be joined, from 1; 0 if all could. May be set though the panorama
                                 ///< goes on behind it
    int key_frames;              ///< given to workers
} tarn_panorama_info;

// NOLINTEND(modernize-use-using)

/* A sweep. The functions answer TARN_ERROR_NO_SUCH_HANDLE and TARN_ERROR_BAD_ARGUMENT, where a pointer that is needed
   is null, a size is none of the structure, or a value is out of its range; and TARN_ERROR_OVER, where they say so. */

/// Begins a sweep and ends the one before.
/// @param options  null: all defaults
/// @param sweep    is given
/// @returns also TARN_ERROR_DIRECTORY_NOT_EMPTY, TARN_ERROR_DIRECTORY_UNUSABLE, TARN_ERROR_NO_MEMORY,
///          TARN_ERROR_PROCESS_ENDS, TARN_ERROR_IN_CALLBACK; the sweep before goes on then, unless one of the two
///          directories holds the other
tarn_result tarn_sweep_begin(const tarn_sweep_options* options, tarn_sweep** sweep);

/// Registers one frame, in typically a few milliseconds. All frames of a sweep should have one size.
/// @param sweep   that is to take it
/// @param frame   where it lies
/// @param hint    of enum tarn_direction: where the camera is meant to move; motion against it is rejected
/// @param answer  null: not wanted
/// @returns also TARN_ERROR_OVER, TARN_ERROR_IN_CALLBACK
tarn_result tarn_sweep_feed(tarn_sweep* sweep, const tarn_image* frame, int hint, tarn_answer* answer);

/// Waits for the workers and hands the panorama out. May be called again: when no frame came after the first time, the
/// answer is the same. A frame that is fed after a finish goes on with the sweep.
/// @param sweep     that is to end
/// @param options   null: all defaults
/// @param panorama  is given also where there is no image: tarn_panorama_get_info then says why
/// @returns also TARN_ERROR_OVER, TARN_ERROR_IN_CALLBACK
tarn_result tarn_sweep_finish(tarn_sweep* sweep, const tarn_finish_options* options, tarn_panorama** panorama);

/// Ends the sweep for good: its workers leave without trace, its files and its directory are removed. A feed or finish
/// that is inside returns within moments, with TARN_REASON_CANCELLED. Does nothing if the sweep is over. The handle
/// stays until it is freed.
tarn_result tarn_sweep_cancel(tarn_sweep* sweep);

/// Whether the sweep is the current one. 0 for what is no sweep, too.
int tarn_sweep_is_current(tarn_sweep* sweep);

/// Where the sweep stands. @returns also TARN_ERROR_OVER
tarn_result tarn_sweep_get_status(tarn_sweep* sweep, tarn_status* status);

/// Waits until at most so many key frames are under way.
/// @param sweep         whose key frames they are
/// @param most          0 or more
/// @param milliseconds  the longest wait; less than 0: as long as workers move
/// @param has_room      0 if it is not so when the time is over, or the workers do not move any more; else 1
/// @returns also TARN_ERROR_OVER
tarn_result tarn_sweep_wait_for_room(tarn_sweep* sweep, int most, int milliseconds, int* has_room);

/// The preview as it is now. Its pixels never change: when the preview grows, it has new ones.
/// @param sweep    that it belongs to
/// @param picture  TARN_FORMAT_BGR; null is given as long as no frame has been taken
/// @param info     null: not wanted
/// @returns also TARN_ERROR_OVER
tarn_result tarn_sweep_preview(tarn_sweep* sweep, tarn_picture** picture, tarn_preview_info* info);

/// The directory in which the sweep keeps its files, with a "/" at its end. Lies with the sweep.
/// @returns also TARN_ERROR_OVER
tarn_result tarn_sweep_directory(tarn_sweep* sweep, const char** path);

/// Ends the sweep as tarn_sweep_cancel does, and its handle.
void tarn_sweep_free(tarn_sweep* sweep);

/* A picture. */

/// Where its pixels lie. They lie with the picture.
tarn_result tarn_picture_view(tarn_picture* picture, tarn_image* view);

/// Another handle of the same pixels, which are not copied.
tarn_result tarn_picture_keep(tarn_picture* picture, tarn_picture** own);

/// The pixels go with the last handle of them.
void tarn_picture_free(tarn_picture* picture);

/* A panorama. */

/// How much it holds, and why not more.
tarn_result tarn_panorama_get_info(tarn_panorama* panorama, tarn_panorama_info* info);

/// The answer for the last frame that tarn_sweep_finish was given; all 0 but its code, TARN_CODE_NORMAL, if there was
/// none.
tarn_result tarn_panorama_last_answer(tarn_panorama* panorama, tarn_answer* answer);

/// The image, TARN_FORMAT_BGR, without padding between rows. Lies with the panorama.
/// @returns also TARN_ERROR_NO_PANORAMA
tarn_result tarn_panorama_view(tarn_panorama* panorama, tarn_image* view);

/// The image as a JPEG, the very bytes that tarn_panorama_save writes. Encoded when first asked for; lies with the
/// panorama.
/// @returns also TARN_ERROR_NO_PANORAMA, TARN_ERROR_NO_MEMORY
tarn_result tarn_panorama_jpeg(tarn_panorama* panorama, const unsigned char** bytes, size_t* count);

/// Writes that JPEG to a file, which appears whole or not at all and replaces one that is there. Its mode is what the
/// process's umask gives.
/// @returns also TARN_ERROR_NO_PANORAMA, TARN_ERROR_NO_MEMORY, TARN_ERROR_DISK
tarn_result tarn_panorama_save(tarn_panorama* panorama, const char* path);

/// Its image and bytes go with it.
void tarn_panorama_free(tarn_panorama* panorama);

#ifdef __cplusplus
}
#endif
