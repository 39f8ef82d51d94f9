#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "ChannelData.pb.h"

// What the samples of the producer tell beside their data, so that an observer can tell gaps and age. All
// three channels number their samples from 1.

namespace vq::sample {

inline std::string PoseChannel(std::string const& prefix) {
    return prefix + "pose";
}
inline std::string CounterChannel(std::string const& prefix) {
    return prefix + "counter";
}
inline std::string ImageChannel(std::string const& prefix) {
    return prefix + "image";
}

/// At the start of the image. Every byte behind it is the last one of the number.
struct ImageHeader {
    std::uint64_t number;
    std::int64_t time;  ///< when it was written, see Microseconds
};

/// The steady clock of the machine, which all its processes share.
inline std::int64_t Microseconds() {
    return std::chrono::duration_cast<std::chrono::microseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

/// A pose carries its number and the low 31 bits of its time as its one contributor.
inline void Stamp(vq::ch::TransformChannelDataEvent& pose, std::int32_t number) {
    vq::ch::ContributorInfo& stamp = *pose.add_contributors();
    stamp.set_first(number);
    stamp.set_second(static_cast<std::int32_t>(Microseconds() & INT32_MAX));
}

/// @return microseconds since the pose was stamped, up to 35 minutes.
inline std::int64_t AgeOf(vq::ch::ContributorInfo const& stamp) {
    return (Microseconds() - stamp.second()) & INT32_MAX;
}

}  // namespace vq::sample
