#include "Messaging/AMessage.h"

#include <ostream>

std::ostream& operator<<(std::ostream& stream, AMessage const& message) {
    return stream << message.Dump();
}
