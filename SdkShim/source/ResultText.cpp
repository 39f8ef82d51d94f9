#include "ResultText.h"

#include <iterator>

namespace vq::SdkShim {

char const* CommonResultText(std::uint32_t code) {
    static constexpr char const* kTexts[] = {
        "VQResult_Ok",
        "VQResult_Pending",
        "VQResult_Timeout",
        "VQResult_Locked",
        "VQResult_UnspecifiedFailure",
        "VQResult_InvalidParam",
        "VQResult_AllocFailed",
        "VQResult_PrivilegeDenied",
        "VQResult_NotImplemented",
    };
    return code < std::size(kTexts) ? kTexts[code] : "Unknown";
}

}  // namespace vq::SdkShim
