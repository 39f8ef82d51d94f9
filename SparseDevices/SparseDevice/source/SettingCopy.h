#pragma once

#include "Config.pb.h"

/// A copy that can be sent: a setting that was never given a value gets an empty one, since the wire wants
/// the field.
inline void CopySetting(vq::cfg::ConfigurationSetting const& from, vq::cfg::ConfigurationSetting& to) {
    to = from;
    static_cast<void>(to.mutable_value());
}
