#include "RequestTable.h"

namespace vq::server {

namespace {

/// A peer's text for one of ours: short, and in one line.
std::string Quote(std::string const& text) {
    constexpr std::size_t kLongest = 100;
    std::string quoted = "'";
    for (char const c : text.substr(0, kLongest)) {
        bool const printable = c >= ' ' && c <= '~';
        quoted += printable ? c : '?';
    }
    return quoted + (text.size() > kLongest ? "...'" : "'");
}

}  // namespace

Answer RequestTable::Handle(std::string const& type, Decoder const& decode) const {
    auto const found = m_handlers.find(type);
    if (found == m_handlers.end()) {
        return GeneralError("this server does not serve the request " + Quote(type));
    }
    Answer answer = found->second(decode);
    return answer != nullptr ? std::move(answer) : GeneralError("the payload is no " + type);
}

Answer GeneralError(std::string const& text) {
    auto error = std::make_unique<vq::vds::Error>();
    error->set_message(text);
    return error;
}

}  // namespace vq::server
