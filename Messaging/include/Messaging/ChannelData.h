#pragma once

#include <google/protobuf/message_lite.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "Messaging/ChannelDataTypes.h"

/// One sample of a channel's data: never changed once it is built, shared by shared_ptr between threads.
class IData {
public:
    virtual ~IData() = default;

    /// A new wire message that holds a copy of the sample; the caller owns it.
    virtual google::protobuf::MessageLite* Serialize() const = 0;
    /// Display text of the data type.
    virtual std::string GetType() const = 0;
    /// The same as GetType().
    virtual std::string ToString() const { return GetType(); }
    /// The sample itself when it is a wire message, equal to what Serialize() copies; null when it has to be
    /// serialised. Valid as long as the sample.
    virtual google::protobuf::MessageLite const* GetWireMessage() const { return nullptr; }
};

/// A sample that is a wire message.
/// @tparam T  a message of the table of data types.
template <class T>
class ProtoMessageDataTemplate final : public IData {
    struct Empty {};

public:
    explicit ProtoMessageDataTemplate(Empty /*tag*/) {}
    /// Display text of the data type.
    static constexpr char const* Type = ChannelDataTypeText<T>;

    explicit ProtoMessageDataTemplate(T const& message) : m_message(message) {}
    explicit ProtoMessageDataTemplate(T&& message) : m_message(std::move(message)) {}
    /// @param fill  called once with the empty message, to fill it in its place; true when that worked.
    /// @return null when it did not.
    template <class Fill>
    static std::shared_ptr<IData> Make(Fill const& fill) {
        auto sample = std::make_shared<ProtoMessageDataTemplate>(Empty());
        return fill(sample->m_message) ? std::move(sample) : nullptr;
    }

    google::protobuf::MessageLite* Serialize() const override { return new T(m_message); }
    std::string GetType() const override { return Type; }
    google::protobuf::MessageLite const* GetWireMessage() const override { return &m_message; }

    T const& GetMessage() const { return m_message; }

private:
    T m_message;
};
