#include <algorithm>
#include <iterator>

#include "Logging/Log.h"
#include "Utils/ProtoUtilsDetail.h"

namespace {

/// One format under its name on either side. That the numbers are equal is chance: neither side promises it.
struct SurfaceFormatNames {
    vq::sd::SurfaceFormat message;
    ::VQSurfaceFormat plain;
};

constexpr SurfaceFormatNames kFormats[] = {
    {vq::sd::SurfaceFormat_0, VQSurfaceFormat_0}, {vq::sd::SurfaceFormat_1, VQSurfaceFormat_1},
    {vq::sd::SurfaceFormat_2, VQSurfaceFormat_2}, {vq::sd::SurfaceFormat_3, VQSurfaceFormat_3},
    {vq::sd::SurfaceFormat_4, VQSurfaceFormat_4}, {vq::sd::SurfaceFormat_5, VQSurfaceFormat_5},
    {vq::sd::SurfaceFormat_6, VQSurfaceFormat_6}, {vq::sd::SurfaceFormat_7, VQSurfaceFormat_7},
};

template <class From, class To>
bool Map(From from, To* to, From SurfaceFormatNames::*fromName, To SurfaceFormatNames::*toName) {
    ProtoUtilsDetail::CheckOutput(to);
    auto const* const found =
        std::find_if(std::begin(kFormats), std::end(kFormats),
                     [&](SurfaceFormatNames const& format) { return format.*fromName == from; });
    if (found == std::end(kFormats)) {
        LOG_E("Unhandled surface format");
        return false;
    }
    *to = found->*toName;
    return true;
}

}  // namespace

bool ProtoUtilsDetail::ConvertToChecked(vq::sd::SurfaceFormat from, ::VQSurfaceFormat* to) {
    return Map(from, to, &SurfaceFormatNames::message, &SurfaceFormatNames::plain);
}

bool ProtoUtilsDetail::ConvertToChecked(::VQSurfaceFormat from, vq::sd::SurfaceFormat* to) {
    return Map(from, to, &SurfaceFormatNames::plain, &SurfaceFormatNames::message);
}
