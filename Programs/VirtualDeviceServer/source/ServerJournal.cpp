#include "VirtualDeviceServer/ServerJournal.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <limits>
#include <optional>

#include "Fnv1a.h"
#include "Logging/Log.h"
#include "Utils/FileDescriptor.h"
#include "Utils/OSUtils.h"

namespace vq::server {

namespace {

constexpr std::string_view kHead = "vdserver-journal 1";
constexpr std::string_view kEnd = "end";
/// A file larger than this is no journal of ours.
constexpr std::size_t kMaximumSize = 16U << 20U;

bool IsPlain(unsigned char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' ||
           c == '-' || c == '.' || c == ':' || c == '@';
}

/// Any bytes as text without blanks, line ends and slashes.
std::string Escape(std::string_view bytes) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string text;
    for (char const c : bytes) {
        auto const byte = static_cast<unsigned char>(c);
        if (IsPlain(byte)) {
            text += c;
        } else {
            text += {'%', kDigits[byte >> 4U], kDigits[byte & 15U]};
        }
    }
    return text;
}

template <class Number>
bool ParseNumber(std::string_view text, Number& number, int base = 10) {
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    return error == std::errc() && end == text.data() + text.size();
}

std::optional<std::string> Unescape(std::string_view text) {
    std::string bytes;
    while (!text.empty()) {
        std::uint8_t byte = static_cast<std::uint8_t>(text.front());
        std::size_t length = 1;
        if (text.front() == '%') {
            length = 3;
            if (text.size() < length || !ParseNumber(text.substr(1, 2), byte, 16)) {
                return std::nullopt;
            }
        } else if (!IsPlain(byte)) {
            return std::nullopt;
        }
        bytes += static_cast<char>(byte);
        text.remove_prefix(length);
    }
    return bytes;
}

/// Takes the text up to the separator off the front; what is left is behind it.
std::string_view TakeUpTo(std::string_view& text, char separator) {
    std::size_t const end = std::min(text.find(separator), text.size());
    std::string_view const taken = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    return taken;
}

template <class Id>
bool ParseNextId(std::string_view value, Id& next) {
    Id id = 0;
    if (!ParseNumber(value, id) || id < 1) {
        return false;
    }
    next = std::max(next, id);
    return true;
}

bool ParseAddress(std::string_view value, MessageAddress& address) {
    std::optional<std::string> const text = Unescape(value);
    if (!text) {
        return false;
    }
    address = MessageAddress::FromString(*text);
    return address.transport != MessageAddress::Transport::NONE && address.logicalName.empty();
}

bool ParseDevice(std::string_view value, ServerMemory& memory) {
    KnownDevice device;
    std::string_view const id = TakeUpTo(value, ' ');
    std::optional<std::string> name = Unescape(value);
    if (!name || name->empty() || !ParseNumber(id, device.id) || device.id < 1 ||
        device.id == std::numeric_limits<std::int32_t>::max()) {
        return false;
    }
    device.name = *std::move(name);
    // Ids go on behind every one that was ever given out, whatever else is damaged.
    memory.nextDeviceId = std::max(memory.nextDeviceId, device.id + 1);
    memory.devices.push_back(std::move(device));
    return true;
}

bool ParseLine(std::string_view line, JournalContent& content) {
    std::string_view value = line;
    std::string_view const key = TakeUpTo(value, ' ');
    if (key == "next-device") {
        return ParseNextId(value, content.memory.nextDeviceId);
    }
    if (key == "next-channel") {
        return ParseNextId(value, content.memory.nextChannelId);
    }
    if (key == "next-application") {
        return ParseNextId(value, content.memory.nextApplicationId);
    }
    if (key == "device") {
        return ParseDevice(value, content.memory);
    }
    if (key == "events") {
        return ParseAddress(value, content.addresses.events);
    }
    if (key == "data-events") {
        return ParseAddress(value, content.addresses.dataEvents);
    }
    if (key == "heartbeat") {
        return ParseAddress(value, content.addresses.heartbeat);
    }
    return key == "memory-events" && ParseAddress(value, content.addresses.memoryEvents);
}

std::optional<std::string> ReadFile(std::string const& path) {
    FileDescriptor const file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file) {
        return std::nullopt;
    }
    std::string text;
    char buffer[4096];
    ssize_t got = 0;
    while ((got = ::read(file.Get(), buffer, sizeof buffer)) > 0 && text.size() <= kMaximumSize) {
        text.append(buffer, static_cast<std::size_t>(got));
    }
    return text;
}

bool WriteFile(std::string const& path, std::string_view text) {
    FileDescriptor file(::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    while (file && !text.empty()) {
        ssize_t const written = ::write(file.Get(), text.data(), text.size());
        if (written < 0 && errno != EINTR) {
            return false;
        }
        text.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
    }
    return file.IsOpen();
}

}  // namespace

std::string ServerJournal::PathFor(std::string const& name, MessageAddress const& address) {
    constexpr std::size_t kMaximumLength = 150;
    std::string key = Escape(name + "@" + address.ToString());
    if (key.size() > kMaximumLength) {
        key = key.substr(0, kMaximumLength) + "." + std::to_string(Fnv1a(key));
    }
    return GetUserTempDirectory() + "vdserver." + key + ".journal";
}

JournalContent ServerJournal::Read() const {
    JournalContent content;
    std::optional<std::string> const text = ReadFile(m_path);
    if (text && !Parse(*text, content)) {
        LOG_W("The journal '%s' is damaged: going on with what could be read", m_path.c_str());
    }
    return content;
}

bool ServerJournal::Write(JournalContent const& content) const {
    std::string const fresh = m_path + ".new";
    if (!WriteFile(fresh, Serialize(content)) || !RenameFile(fresh, m_path)) {
        LOG_E("Failed to write the journal '%s': %s", m_path.c_str(), GetOSErrorText(errno).c_str());
        return false;
    }
    return true;
}

std::string ServerJournal::Serialize(JournalContent const& content) {
    ServerMemory const& memory = content.memory;
    std::string text(kHead);
    auto const add = [&text](std::string const& key, std::string const& value) {
        text += "\n" + key + " " + value;
    };
    add("next-device", std::to_string(memory.nextDeviceId));
    add("next-channel", std::to_string(memory.nextChannelId));
    add("next-application", std::to_string(memory.nextApplicationId));
    auto const addAddress = [&add](std::string const& key, MessageAddress const& address) {
        if (address.transport != MessageAddress::Transport::NONE) {
            add(key, Escape(address.ToString()));
        }
    };
    addAddress("events", content.addresses.events);
    addAddress("data-events", content.addresses.dataEvents);
    addAddress("heartbeat", content.addresses.heartbeat);
    addAddress("memory-events", content.addresses.memoryEvents);
    for (KnownDevice const& device : memory.devices) {
        add("device", std::to_string(device.id) + " " + Escape(device.name));
    }
    return text + "\n" + std::string(kEnd) + "\n";
}

bool ServerJournal::Parse(std::string_view text, JournalContent& content) {
    if (TakeUpTo(text, '\n') != kHead) {
        return false;
    }
    while (!text.empty()) {
        std::string_view const line = TakeUpTo(text, '\n');
        if (line == kEnd) {
            return text.empty();
        }
        if (!ParseLine(line, content)) {
            return false;
        }
    }
    return false;
}

}  // namespace vq::server
