// SPDX-License-Identifier: Apache-2.0
//
// The version and the words of tarn_c.h; its numbers are those of the vocabulary and of the session.
#include "tarn_c.h"
#include "tarn_sweep.h"
#include "vocabulary.h"

namespace tarn {

namespace {

template <typename Enumeration>
constexpr bool is_numbered(int number, Enumeration value)
{
    return number == static_cast<int>(value);
}

static_assert(is_numbered(TARN_CODE_PIPELINE_FAILED, code_pipeline_failed) && is_numbered(TARN_CODE_LOST, code_lost)
              && is_numbered(TARN_CODE_NORMAL, code_normal) && is_numbered(TARN_CODE_FEW_DETAILS, code_few_details)
              && is_numbered(TARN_CODE_VERY_FEW_DETAILS, code_very_few_details)
              && is_numbered(TARN_CODE_WRONG_WAY, code_wrong_way) && is_numbered(TARN_CODE_TOO_FAST, code_too_fast)
              && is_numbered(TARN_CODE_SKEWED, code_skewed) && is_numbered(TARN_CODE_SKEWED, highest_code));
static_assert(is_numbered(TARN_DIRECTION_UNDECIDED, direction_undecided)
              && is_numbered(TARN_DIRECTION_DOWN, direction_down) && is_numbered(TARN_DIRECTION_UP, direction_up)
              && is_numbered(TARN_DIRECTION_RIGHT, direction_right) && is_numbered(TARN_DIRECTION_LEFT, direction_left)
              && is_numbered(TARN_DIRECTION_LEFT, last_direction_code));
static_assert(is_numbered(TARN_PIPELINE_EMPTY, pipeline_empty) && is_numbered(TARN_PIPELINE_BUSY, pipeline_busy)
              && is_numbered(TARN_PIPELINE_READY, pipeline_ready)
              && is_numbered(TARN_PIPELINE_FAILED, pipeline_failed));

static_assert(is_numbered(TARN_REASON_NONE, reason::none) && is_numbered(TARN_REASON_BUSY, reason::busy)
              && is_numbered(TARN_REASON_PIPELINE_FAILED, reason::pipeline_failed)
              && is_numbered(TARN_REASON_TOO_FEW_CORNERS, reason::too_few_corners)
              && is_numbered(TARN_REASON_TOO_FEW_TRACKED, reason::too_few_tracked)
              && is_numbered(TARN_REASON_IMPLAUSIBLE_SHAPE, reason::implausible_shape)
              && is_numbered(TARN_REASON_TOO_FEW_INLIERS, reason::too_few_inliers)
              && is_numbered(TARN_REASON_AGAINST_THE_HINT, reason::against_the_hint)
              && is_numbered(TARN_REASON_NOT_CONVEX, reason::not_convex)
              && is_numbered(TARN_REASON_OUT_OF_SCALE, reason::out_of_scale)
              && is_numbered(TARN_REASON_UNUSABLE_FRAME, reason::unusable_frame)
              && is_numbered(TARN_REASON_TOO_FEW_MATCHES, reason::too_few_matches)
              && is_numbered(TARN_REASON_NO_HOMOGRAPHY, reason::no_homography)
              && is_numbered(TARN_REASON_SHAPE_REFUSED, reason::shape_refused)
              && is_numbered(TARN_REASON_TOO_LARGE, reason::too_large)
              && is_numbered(TARN_REASON_TIMED_OUT, reason::timed_out)
              && is_numbered(TARN_REASON_NO_MEMORY, reason::no_memory)
              && is_numbered(TARN_REASON_NO_THREAD, reason::no_thread) && is_numbered(TARN_REASON_DISK, reason::disk)
              && is_numbered(TARN_REASON_CANCELLED, reason::cancelled)
              && is_numbered(TARN_REASON_PROCESS_ENDS, reason::process_ends)
              && is_numbered(TARN_REASON_NO_FRAMES, reason::no_frames));
static_assert(is_numbered(TARN_ERROR_BAD_ARGUMENT, sweep_problem::bad_argument)
              && is_numbered(TARN_ERROR_OVER, sweep_problem::over)
              && is_numbered(TARN_ERROR_DIRECTORY_NOT_EMPTY, sweep_problem::directory_not_empty)
              && is_numbered(TARN_ERROR_DIRECTORY_UNUSABLE, sweep_problem::directory_unusable)
              && is_numbered(TARN_ERROR_NO_PANORAMA, sweep_problem::no_panorama)
              && is_numbered(TARN_ERROR_NO_MEMORY, sweep_problem::no_memory)
              && is_numbered(TARN_ERROR_DISK, sweep_problem::disk)
              && is_numbered(TARN_ERROR_PROCESS_ENDS, sweep_problem::process_ends));
static_assert(is_numbered(TARN_FORMAT_RGBA, pixel_format::rgba) && is_numbered(TARN_FORMAT_BGRA, pixel_format::bgra)
              && is_numbered(TARN_FORMAT_BGR, pixel_format::bgr) && is_numbered(TARN_FORMAT_GRAY, pixel_format::gray));
static_assert(is_numbered(TARN_EXTENT_MISSING, panorama_extent::missing)
              && is_numbered(TARN_EXTENT_PARTIAL, panorama_extent::partial)
              && is_numbered(TARN_EXTENT_WHOLE, panorama_extent::whole));

}  // namespace

}  // namespace tarn

using namespace tarn;  // NOLINT(google-build-using-namespace): what follows is this namespace's face to C

const char* tarn_version()
{
    return TARN_VERSION_STRING;
}

int tarn_version_number()
{
    return TARN_VERSION_NUMBER;
}

const char* tarn_result_name(tarn_result result)
{
    switch (result) {
    case TARN_OK:
        return "no error";
    case TARN_ERROR_BAD_ARGUMENT:
        return "bad argument";
    case TARN_ERROR_OVER:
        return "the sweep is over";
    case TARN_ERROR_DIRECTORY_NOT_EMPTY:
        return "the directory is not empty";
    case TARN_ERROR_DIRECTORY_UNUSABLE:
        return "the directory cannot be used";
    case TARN_ERROR_NO_PANORAMA:
        return "no panorama";
    case TARN_ERROR_NO_MEMORY:
        return "no memory";
    case TARN_ERROR_DISK:
        return "a file cannot be written";
    case TARN_ERROR_PROCESS_ENDS:
        return "the process ends";
    case TARN_ERROR_NO_SUCH_HANDLE:
        return "no such handle";
    case TARN_ERROR_UNSUPPORTED:
        return "not in this version";
    case TARN_ERROR_IN_CALLBACK:
        return "called from a callback";
    case TARN_ERROR_UNEXPECTED:
        return "unexpected error";
    default:
        return "unknown";
    }
}

const char* tarn_code_name(int code)
{
    return name_of(static_cast<answer_code>(code));
}

const char* tarn_code_advice(int code)
{
    return advice_for(static_cast<answer_code>(code));
}

const char* tarn_direction_name(int direction)
{
    return name_of(static_cast<direction_code>(direction));
}

const char* tarn_pipeline_name(int state)
{
    return name_of(static_cast<pipeline_state>(state));
}

const char* tarn_reason_name(int why)
{
    return name_of(static_cast<reason>(why));
}

const char* tarn_reason_advice(int why)
{
    return advice_for(static_cast<reason>(why));
}
