#pragma once

#include <google/protobuf/message_lite.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace golden {

/// One field of a message as bytes, and whether the message is complete without it.
struct Piece {
    std::string bytes;
    bool required;
};

inline Piece Needs(std::string bytes) {
    return {std::move(bytes), true};
}

inline Piece May(std::string bytes) {
    return {std::move(bytes), false};
}

/// A message with a value in each of its fields, by our class and by hand.
struct Sample {
    std::shared_ptr<google::protobuf::MessageLite> message;
    std::string typeName;
    std::vector<Piece> pieces;
    std::function<std::string(std::string const&)> unknownFieldsOf;

    std::string Bytes(std::size_t without = std::string::npos) const {
        std::string bytes;
        for (std::size_t i = 0; i < pieces.size(); ++i) {
            bytes += i == without ? "" : pieces[i].bytes;
        }
        return bytes;
    }
};

template <typename Message>
Sample Of(char const* typeName, std::vector<Piece> pieces, void (*fill)(Message&)) {
    auto message = std::make_shared<Message>();
    fill(*message);
    return {message, typeName, std::move(pieces), [](std::string const& bytes) {
                Message parsed;
                EXPECT_TRUE(parsed.ParsePartialFromString(bytes));
                return parsed.unknown_fields();
            }};
}

/// The samples, grouped by the kind of message.
std::vector<Sample> IdentitySamples();
std::vector<Sample> ServerSamples();
std::vector<Sample> EventSamples();
std::vector<Sample> ChannelSamples();
std::vector<Sample> ConfigSamples();

}  // namespace golden
