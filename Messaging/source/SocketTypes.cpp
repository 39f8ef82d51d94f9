#include "Messaging/SocketTypes.h"

#include <array>
#include <cstddef>
#include <cstdlib>

namespace {

struct SocketType {
    char const* name;
    int opposite;
};

constexpr std::array<SocketType, 12> kSocketTypes = {{
    {"ZMQ_PAIR", 0},
    {"ZMQ_PUB", 2},
    {"ZMQ_SUB", 1},
    {"ZMQ_REQ", 4},
    {"ZMQ_REP", 3},
    {"ZMQ_DEALER", 6},
    {"ZMQ_ROUTER", 5},
    {"ZMQ_PULL", 8},
    {"ZMQ_PUSH", 7},
    {"ZMQ_XPUB", 10},
    {"ZMQ_XSUB", 9},
    {"ZMQ_STREAM", 11},
}};

bool IsSocketType(int type) {
    return type >= 0 && static_cast<std::size_t>(type) < kSocketTypes.size();
}

}  // namespace

std::string SocketTypes::GetTypeName(int type) {
    return IsSocketType(type) ? kSocketTypes[static_cast<std::size_t>(type)].name : std::to_string(type);
}

int SocketTypes::GetOppositeType(int type) {
    if (!IsSocketType(type)) {
        std::abort();
    }
    return kSocketTypes[static_cast<std::size_t>(type)].opposite;
}
