// SPDX-License-Identifier: Apache-2.0
//
// The host's interface: everything an application needs to stitch a sweep.
//
// The life of a sweep
// -------------------
//     resetStitch("/data/cache/sweep/");               // a directory that the library may empty
//     for each frame of the camera:
//         int* result = videoStitch(rgba, 3, 0);       // 3: the camera is meant to move to the right
//         tell the user by result[0]; show getCurrentPanoramsShowMat()
//     videoStitch(rgba, 3, 1);                         // the last frame: waits for the workers
//     copy the file getCurrentPanoramaShow() away      // "" if there is none
//
// Threads: all functions belong to one thread, the host's. Workers run beside it; they never call the host. Calls that
// overlap all the same are answered: a frame during another one is "busy", code 0; a reset waits for the frame inside,
// within its bound, and ends the wait of a last one.
// Strings, result arrays: owned by the library, valid until the next call.
// Failure: no exception leaves these functions, but for one of matToBitmapArray; a frame-level outcome is a code.
// Output: the library writes log lines to standard output. One of them has no line end. Where that is a pipe that
// nobody reads, a call waits for its reader as any program would: read it, or use tarn::sweep (tarn_sweep.h), which
// writes nothing there. No failure of the stream leaves a call.
// Copies: plug-ins may each bring a copy of the shared library, with a name (SONAME) of its own or opened by its path.
// Each copy that is loaded locally (RTLD_LOCAL) has a sweep of its own. Of copies that are loaded globally, or linked
// beside each other, the first one that is used has the sweep. Calls of the others are refused, with code -1, and
// change nothing. Where several plug-ins use one copy, only the functions speak of its sweep: the variables of
// module_globals.h are those of the part that reads them. Parts of a plug-in that include this header are to be
// compiled with -fno-gnu-unique where the compiler is GCC; the CMake target says so.
// Forks: a forked child may look at what there was, but its frames are answered -1, its resets do nothing, and no sweep
// can be begun. The fork itself waits for the frame inside. The library bounds its own part of the child's end by an
// alarm of two seconds (SIGALRM).
// Orientation: frames are taken as a camera's sensor delivers them when the device is held upright. The
// high-resolution panorama is rotated by 90 degrees clockwise against them; the preview is not.
#pragma once

#include <opencv2/core.hpp>

#include "tarn_stitcher.h"

/// The sweep that all entry points act on. Constructed with "" before main, after the variables that it resets.
extern TarnStitcher tarn_stitcher;

/// Starts a new sweep: removes the working directory of the old one if the path changes; creates the new one if it is
/// missing, else empties it.
///
/// Waits for 1.1 seconds at most, all in all: for a worker that is just writing its file, for a frame that another
/// thread has inside, and where a sweep is marked busy without a frame. If the file or the frame takes longer - a disk
/// does not answer, a thread has been stopped - no new sweep can begin: the old one stays in place, but has ended. Its
/// workers leave, its frames are answered -1, "start again", and so does the host with another reset. What cannot be
/// bounded is a disk that does not answer while the directories themselves are emptied, removed or made.
///
/// @param input_path  working directory with a trailing "/", wholly the library's: whatever lies in it is
///                    deleted. "" (or null) touches no directory, and the
///                    sweep's files then lie in the current one. A missing directory is created with mode
///                    0200, which an ordinary user cannot enter on most file systems: create it yourself first.
///                    Another spelling of the old path names another path: its directory is removed and made anew,
///                    for an ordinary user with the mode that it had. A directory inside the old one may be the new
///                    one: the old one then stays, emptied.
/// @returns 1, always. When a missing directory cannot be created the old sweep stays in place, and goes on.
int resetStitch(const char* input_path);

/// Registers one frame. Typically a few milliseconds; the call with the last frame also waits for the workers
/// (at most max_wait_seconds) and writes the panorama.
///
/// @param mat          CV_8UC4 in R,G,B,A order, of one size throughout a sweep; only read, and not kept
/// @param direction    the direction in which the camera is meant to move, 1 down, 2 up, 3 right, 4 left in the
///                     frames' own coordinates; motion opposite to it is rejected. 0 for no preference
/// @param is_last_one  not 0 for the last frame, which is composed without being registered live
/// @returns two ints, overwritten by the next call; the second is 0. The first:
///
/// | code | meaning                                   | tell the user                             |
/// |------|-------------------------------------------|-------------------------------------------|
/// | -1   | the high-resolution pipeline has failed   | start again                               |
/// | 0    | ten frames in a row rejected, or busy     | go back to where the panorama ends        |
/// | 1    | normal                                    |                                           |
/// | 2    | accepted with 20 to 49 inliers            | few details here                          |
/// | 3    | accepted with fewer than 20 inliers       | very few details here                     |
/// | 4    | rejected: motion against the hint         | wrong way                                 |
/// | 5    | accepted; mean motion above 10 px (of 300) | slower                                   |
/// | 6    | accepted, but skewed                      | hold the device level                     |
///
/// A frame that raises an error (no pixels, two channels, 16 bits, floats) is logged and dropped; the array
/// then still holds what it held before, {0, 0} in the very first call.
int* videoStitch(cv::Mat mat, int direction, int is_last_one);

/// Path of the finished high-resolution panorama, a JPEG in the working directory; "" until there is one.
/// Valid until the next call of resetStitch or videoStitch.
const char* getCurrentPanoramaShow();

/// Path of the frame file that a worker wrote last, for diagnosis; "" before the first one ever.
/// Valid until the next call of this function.
const char* getTestCurrentPanoramaShow();

/// The preview panorama, CV_8UC3 in B,G,R order, as wide as the frames' working copy (at most 300 px) at first
/// and growing with every key frame. Shares its pixels, which never change; empty before the first frame.
cv::Mat getCurrentPanoramsShowMat();

/// The preview panorama as packed pixels (see matToBitmapArray). The caller deletes the array with delete[].
/// Null when memory is short.
int* nativeCarrier_getCurrentPanoramaShow();

/// An image as packed 32-bit pixels for a platform bitmap.
///
/// @param image  CV_8UC3, B,G,R; may be empty, may be a view. An image of another type gives black pixels.
/// @returns a new array of n + 2 ints, n = rows * cols: the pixels row by row, top row first, each 0xFFRRGGBB;
///          then the width at n and the height at n + 1. The caller deletes it with delete[].
/// @throws std::bad_alloc
int* matToBitmapArray(const cv::Mat& image);
