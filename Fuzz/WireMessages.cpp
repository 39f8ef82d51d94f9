// Messages of all protocols, from their bytes to the fields that people read, and back.
//
// The input is the full name of a type up to a line feed, and the bytes.

#include "Codec.h"
#include "Failure.h"
#include "FuzzTarget.h"
#include "Output.h"

using namespace vq::rigctl;

void TryInput(std::string_view input) {
    std::size_t const end = input.find('\n');
    MessageType const* const type = Schema::Instance().FindMessage(std::string(input.substr(0, end)));
    if (end == std::string_view::npos || type == nullptr) {
        return;
    }
    std::string known;
    Json::Value fields;
    try {
        fields = Decode(*type, input.substr(end + 1));
        known = Encode(*type, fields);
    } catch (Failure const&) {
        return;  // broken, or a required field is missing
    }
    FUZZ_CHECK(CompactJson(Decode(*type, known)) == CompactJson(fields));
}
