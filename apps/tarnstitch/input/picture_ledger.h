// SPDX-License-Identifier: Apache-2.0
//
// Which number and time each decoded picture of a video has, and which pictures are missing. No decoder tells what it
// has passed over, so packets that go in are entered here, and pictures that come out are crossed out: pictures come
// in the order of their times, so one that comes shows which before it will not.
//
// Each packet gets a serial number, which goes through the decoder in the place of the packet's time. It tells pictures
// apart whatever the file makes of times: none at all, the same for several, or a jump back.
#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <set>
#include <tuple>

namespace tarn::host {

class picture_ledger {
public:
    /// The time of a packet or a picture that has none.
    static constexpr std::int64_t no_time = std::numeric_limits<std::int64_t>::min();

    /// A picture that came out of the decoder.
    struct entry {
        int number = 0;               ///< from 1, in the order in which pictures are shown
        std::int64_t time = no_time;  ///< in the stream's units
        bool after_jump = false;      ///< the times have gone back before it, to begin anew
    };

    /// Enters a packet that holds a picture.
    /// @param shown    when its picture is to be shown, or no_time
    /// @param decoded  when it is to be decoded, or no_time
    /// @returns its serial number
    std::int64_t add(std::int64_t shown, std::int64_t decoded);

    /// Enters a place at which the picture before is to be shown once more.
    void add_repeat(std::int64_t shown, std::int64_t decoded);

    /// The decoder has failed at one of the packets so far. Only then pictures that do not come are missing; a packet
    /// may be half of a picture, or one that is never shown.
    void trouble();

    /// Crosses out a picture that came.
    /// @param key  whether it is a key picture, with which the decoder recovers
    entry take(std::int64_t serial, bool key);

    /// Nothing comes any more. What is left is missing, or repeats.
    void finish();

    /// Begins at a key picture with so many pictures before it in the file. Those that are shown before it and lie
    /// behind it are not counted as missing.
    void resume(int before);

    /// Pictures and repeats that have been entered.
    int entered() const
    {
        return entered_;
    }

    /// Pictures that were missing.
    int missing() const
    {
        return missing_;
    }

    /// Pictures that were entered and neither came nor are missing, so that none of the others' numbers counts them: those
    /// at a file's beginning that need others before it.
    int uncounted() const
    {
        return uncounted_;
    }

    /// Repeats behind the last picture, once finished.
    int repeats_at_end() const
    {
        return repeats_at_end_;
    }

private:
    struct place {
        int part = 0;           ///< of the file, between jumps of the times
        std::int64_t time = 0;  ///< when it is shown, or else decoded
        std::int64_t serial = 0;
        bool timed = false;  ///< whether that is when it is shown

        bool operator<(const place& other) const
        {
            return std::tie(part, time, serial) < std::tie(other.part, other.time, other.serial);
        }
    };

    std::int64_t enter(std::int64_t shown, std::int64_t decoded);

    std::map<std::int64_t, place> places_;  ///< of what has not come yet, by serial number
    std::set<place> expected_;              ///< the same in the order in which it is to come
    std::set<std::int64_t> repeats_;        ///< those that are repeats
    bool has_times_ = false;                ///< to be shown at; otherwise pictures are shown as they come
    std::int64_t next_serial_ = 0;
    std::int64_t last_trouble_ = -1;  ///< the packet entered last when there was trouble; -1 for none
    std::int64_t last_decoded_ = no_time;
    int part_ = 0;
    int part_of_last_ = 0;
    int number_ = 0;
    int entered_ = 0;
    int missing_ = 0;
    int uncounted_ = 0;
    int repeats_at_end_ = 0;
    bool resuming_ = false;
};

}  // namespace tarn::host
