// SPDX-License-Identifier: Apache-2.0
//
// The names of what the interface counts.
#include "tarn_finishing.h"

namespace tarn::finishing {

const char* name_of(status value)
{
    switch (value) {
    case status::ok:
        return "ok";
    case status::cancelled:
        return "cancelled";
    case status::no_key_frames:
        return "no key frames";
    case status::unreadable:
        return "unreadable";
    case status::out_of_memory:
        return "out of memory";
    case status::failed:
        return "failed";
    }
    return "";
}

const char* name_of(stage value)
{
    switch (value) {
    case stage::reading:
        return "reading";
    case stage::pairing:
        return "pairing";
    case stage::placing:
        return "placing";
    case stage::exposure:
        return "exposure";
    case stage::seams:
        return "seams";
    case stage::blending:
        return "blending";
    }
    return "";
}

const char* name_of(camera_motion value)
{
    switch (value) {
    case camera_motion::none:
        return "none";
    case camera_motion::turning:
        return "turning";
    case camera_motion::sliding:
        return "sliding";
    case camera_motion::tilting:
        return "tilting";
    case camera_motion::projective:
        return "projective";
    }
    return "";
}

const char* name_of(projection value)
{
    switch (value) {
    case projection::plane:
        return "plane";
    case projection::cylinder:
        return "cylinder";
    case projection::turned_cylinder:
        return "turned cylinder";
    case projection::sphere:
        return "sphere";
    }
    return "";
}

const char* name_of(placed_by value)
{
    switch (value) {
    case placed_by::features:
        return "features";
    case placed_by::alignment:
        return "alignment";
    case placed_by::live_motion:
        return "live motion";
    case placed_by::nothing:
        return "nothing";
    }
    return "";
}

const char* name_of(left_out value)
{
    switch (value) {
    case left_out::no:
        return "no";
    case left_out::adds_nothing:
        return "adds nothing";
    case left_out::unplaced:
        return "unplaced";
    case left_out::beyond:
        return "beyond";
    }
    return "";
}

}  // namespace tarn::finishing
