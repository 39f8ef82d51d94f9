#include <bit>
#include <charconv>
#include <cmath>
#include <cstdlib>

#include "Codec.h"
#include "Failure.h"
#include "WireReader.h"

namespace vq::rigctl {

namespace {

using Type = Field::Type;

/// Deeper messages are taken for broken ones.
constexpr int kDeepest = 64;

Json::Value FloatingPoint(double value) {
    if (std::isfinite(value)) {
        return value;
    }
    return std::isnan(value) ? "nan" : value < 0 ? "-inf" : "inf";
}

/// The double that prints as the float does.
Json::Value FromFloat(float value) {
    char text[64];
    auto const end = std::to_chars(text, text + sizeof text - 1, value).ptr;
    *end = '\0';
    return FloatingPoint(std::strtod(text, nullptr));
}

std::string Hexadecimal(std::string_view bytes) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (char const c : bytes) {
        auto const byte = static_cast<unsigned char>(c);
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 15U];
    }
    return text;
}

std::int64_t UnZigzag(std::uint64_t value) {
    return static_cast<std::int64_t>((value >> 1U) ^ (~(value & 1U) + 1U));
}

Json::Value FromNumber(Field const& field, std::uint64_t value) {
    switch (field.type) {
        case Type::Double:
            return FloatingPoint(std::bit_cast<double>(value));
        case Type::Float:
            return FromFloat(std::bit_cast<float>(static_cast<std::uint32_t>(value)));
        case Type::Int32:
        case Type::Sfixed32:
            return static_cast<std::int32_t>(value);
        case Type::Int64:
        case Type::Sfixed64:
            return static_cast<Json::Int64>(value);
        case Type::Uint32:
        case Type::Fixed32:
            return static_cast<std::uint32_t>(value);
        case Type::Sint32:
        case Type::Sint64:
            return static_cast<Json::Int64>(UnZigzag(value));
        case Type::Bool:
            return value != 0;
        case Type::Enum: {
            int const number = static_cast<int>(value);
            std::string const* const name = Schema::Instance().FindEnumName(field.typeName, number);
            return name != nullptr ? Json::Value(*name) : Json::Value(number);
        }
        default:
            return static_cast<Json::UInt64>(value);
    }
}

WireReader::Type WireTypeOf(Type type) {
    switch (type) {
        case Type::Double:
        case Type::Fixed64:
        case Type::Sfixed64:
            return WireReader::Fixed64;
        case Type::Float:
        case Type::Fixed32:
        case Type::Sfixed32:
            return WireReader::Fixed32;
        case Type::String:
        case Type::Bytes:
        case Type::Message:
            return WireReader::Bytes;
        default:
            return WireReader::Varint;
    }
}

Json::Value DecodeMessage(MessageType const& type, std::string_view message, int depth);

Json::Value FromBytes(Field const& field, std::string_view bytes, int depth) {
    if (field.type == Type::Message) {
        MessageType const* const type = Schema::Instance().FindMessage(field.typeName);
        return type != nullptr ? DecodeMessage(*type, bytes, depth + 1) : Json::Value();
    }
    return field.type == Type::Bytes ? Hexadecimal(bytes) : std::string(bytes);
}

void AppendPacked(Field const& field, std::string_view packed, Json::Value& list) {
    WireReader reader(packed);
    WireReader::Type const wire = WireTypeOf(field.type);
    while (!reader.AtEnd() && !reader.IsBroken()) {
        std::uint64_t const value = wire == WireReader::Varint    ? reader.TakeVarint()
                                    : wire == WireReader::Fixed64 ? reader.TakeFixed(8)
                                                                  : reader.TakeFixed(4);
        if (!reader.IsBroken()) {
            list.append(FromNumber(field, value));
        }
    }
}

void TakeField(Field const& field, WireReader const& reader, Json::Value& result, int depth) {
    if (reader.type != WireTypeOf(field.type)) {
        if (field.repeated && reader.type == WireReader::Bytes) {
            AppendPacked(field, reader.bytes, result[field.name]);
        }
        return;
    }
    Json::Value& slot = result[field.name];
    Json::Value value = reader.type == WireReader::Bytes ? FromBytes(field, reader.bytes, depth)
                                                         : FromNumber(field, reader.value);
    if (field.repeated) {
        slot.append(std::move(value));
    } else {
        slot = std::move(value);
    }
}

Json::Value DecodeMessage(MessageType const& type, std::string_view message, int depth) {
    Json::Value result(Json::objectValue);
    for (Field const& field : type.fields) {
        if (field.repeated) {
            result[field.name] = Json::Value(Json::arrayValue);
        }
    }
    WireReader reader(message);
    while (depth < kDeepest && reader.Next()) {
        if (Field const* const field = type.Find(reader.number); field != nullptr) {
            TakeField(*field, reader, result, depth);
        }
    }
    if (reader.IsBroken() || depth >= kDeepest) {
        throw Failure(Status::Refused, "A broken " + type.name + " has arrived.");
    }
    for (Field const& field : type.fields) {
        if (field.required && !result.isMember(field.name)) {
            throw Failure(Status::Refused, "A " + type.name + " without " + field.name + " has arrived.");
        }
    }
    return result;
}

}  // namespace

Json::Value Decode(MessageType const& type, std::string_view message) {
    return DecodeMessage(type, message, 0);
}

}  // namespace vq::rigctl
