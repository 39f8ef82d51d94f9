#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "Codec.h"
#include "Failure.h"
#include "WireReader.h"

namespace vq::rigctl {

namespace {

using Type = Field::Type;

[[noreturn]] void Misfit(Field const& field, Json::Value const& value) {
    Json::StreamWriterBuilder oneLine;
    oneLine["indentation"] = "";
    std::string const text = value.isString() ? value.asString() : Json::writeString(oneLine, value);
    throw Failure(Status::BadUsage, "'" + text + "' does not fit the field " + field.name + ".");
}

void AppendVarint(std::string& out, std::uint64_t value) {
    for (; value >= 0x80U; value >>= 7U) {
        out += static_cast<char>((value & 0x7FU) | 0x80U);
    }
    out += static_cast<char>(value);
}

void AppendKey(std::string& out, Field const& field, WireReader::Type wire) {
    AppendVarint(out, static_cast<std::uint64_t>(field.number) << 3U | wire);
}

void AppendFixed(std::string& out, Field const& field, std::uint64_t value, std::size_t size) {
    AppendKey(out, field, size == 8 ? WireReader::Fixed64 : WireReader::Fixed32);
    for (std::size_t i = 0; i < size; ++i) {
        out += static_cast<char>(value >> (8 * i));
    }
}

void AppendBytes(std::string& out, Field const& field, std::string const& bytes) {
    AppendKey(out, field, WireReader::Bytes);
    AppendVarint(out, bytes.size());
    out += bytes;
}

template <class Number>
Number Parse(Field const& field, Json::Value const& value) {
    std::string const text = value.asString();
    Number number{};
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) {
        Misfit(field, value);
    }
    return number;
}

bool ParseFlag(Field const& field, Json::Value const& value) {
    if (value.isBool()) {
        return value.asBool();
    }
    std::string const text = value.asString();
    if (text == "true" || text == "yes" || text == "on" || text == "1") {
        return true;
    }
    if (text != "false" && text != "no" && text != "off" && text != "0") {
        Misfit(field, value);
    }
    return false;
}

std::int64_t ParseEnum(Field const& field, Json::Value const& value) {
    int number = 0;
    if (value.isString() && Schema::Instance().FindEnumValue(field.typeName, value.asString(), number)) {
        return number;
    }
    number = Parse<int>(field, value);
    if (Schema::Instance().FindEnumName(field.typeName, number) == nullptr) {
        Misfit(field, value);
    }
    return number;
}

std::string ParseHexadecimal(Field const& field, Json::Value const& value) {
    std::string const text = value.asString();
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        unsigned byte = 0;
        char const* const end = text.data() + std::min(i + 2, text.size());
        auto const result = std::from_chars(text.data() + i, end, byte, 16);
        if (result.ec != std::errc() || result.ptr != end || i + 1 == text.size()) {
            Misfit(field, value);
        }
        bytes += static_cast<char>(byte);
    }
    return bytes;
}

std::uint64_t Zigzag(std::int64_t value) {
    return (static_cast<std::uint64_t>(value) << 1U) ^ static_cast<std::uint64_t>(value >> 63);
}

void AppendVarintField(std::string& out, Field const& field, std::uint64_t value) {
    AppendKey(out, field, WireReader::Varint);
    AppendVarint(out, value);
}

void AppendNumber(std::string& out, Field const& field, Json::Value const& value) {
    switch (field.type) {
        case Type::Double:
            return AppendFixed(out, field, std::bit_cast<std::uint64_t>(Parse<double>(field, value)), 8);
        case Type::Float:
            return AppendFixed(out, field, std::bit_cast<std::uint32_t>(Parse<float>(field, value)), 4);
        case Type::Fixed64:
            return AppendFixed(out, field, Parse<std::uint64_t>(field, value), 8);
        case Type::Sfixed64:
            return AppendFixed(out, field, static_cast<std::uint64_t>(Parse<std::int64_t>(field, value)), 8);
        case Type::Fixed32:
            return AppendFixed(out, field, Parse<std::uint32_t>(field, value), 4);
        case Type::Sfixed32:
            return AppendFixed(out, field, static_cast<std::uint32_t>(Parse<std::int32_t>(field, value)), 4);
        case Type::Int32:
            return AppendVarintField(out, field,
                                     static_cast<std::uint64_t>(Parse<std::int32_t>(field, value)));
        case Type::Int64:
            return AppendVarintField(out, field,
                                     static_cast<std::uint64_t>(Parse<std::int64_t>(field, value)));
        case Type::Uint32:
            return AppendVarintField(out, field, Parse<std::uint32_t>(field, value));
        case Type::Sint32:
            return AppendVarintField(out, field, Zigzag(Parse<std::int32_t>(field, value)));
        case Type::Sint64:
            return AppendVarintField(out, field, Zigzag(Parse<std::int64_t>(field, value)));
        case Type::Bool:
            return AppendVarintField(out, field, ParseFlag(field, value) ? 1 : 0);
        case Type::Enum:
            return AppendVarintField(out, field, static_cast<std::uint64_t>(ParseEnum(field, value)));
        default:
            return AppendVarintField(out, field, Parse<std::uint64_t>(field, value));
    }
}

void AppendValue(std::string& out, Field const& field, Json::Value const& value) {
    if (field.type == Type::Message) {
        if (!value.isObject()) {
            Misfit(field, value);
        }
        return AppendBytes(out, field, Encode(*Schema::Instance().FindMessage(field.typeName), value));
    }
    if (value.isObject() || value.isArray() || value.isNull()) {
        Misfit(field, value);
    }
    if (field.type == Type::String) {
        return AppendBytes(out, field, value.asString());
    }
    if (field.type == Type::Bytes) {
        return AppendBytes(out, field, ParseHexadecimal(field, value));
    }
    AppendNumber(out, field, value);
}

Field const& Need(MessageType const& type, std::string const& name) {
    if (Field const* const field = type.Find(name); field != nullptr) {
        return *field;
    }
    std::string const fields = DescribeFields(type);
    throw Failure(Status::BadUsage, type.name + " has no field '" + name + "'" +
                                        (fields.empty() ? "." : "; it has: " + fields + "."));
}

Json::Value ParseJson(Field const& field, std::string const& text) {
    Json::CharReaderBuilder builder;
    std::unique_ptr<Json::CharReader> const reader(builder.newCharReader());
    Json::Value value;
    std::string errors;
    if (!reader->parse(text.data(), text.data() + text.size(), &value, &errors)) {
        Misfit(field, text);
    }
    return value;
}

}  // namespace

std::string Encode(MessageType const& type, Json::Value const& fields) {
    for (std::string const& name : fields.getMemberNames()) {
        Need(type, name);
    }
    std::string out;
    for (Field const& field : type.fields) {
        Json::Value const& value = fields[field.name];
        if (value.isNull()) {
            if (field.required) {
                throw Failure(Status::BadUsage, type.name + " needs the field '" + field.name + "'.");
            }
        } else if (!field.repeated) {
            AppendValue(out, field, value);
        } else if (!value.isArray()) {
            Misfit(field, value);
        } else {
            for (Json::Value const& element : value) {
                AppendValue(out, field, element);
            }
        }
    }
    return out;
}

void AddField(MessageType const& type, std::string const& argument, Json::Value& fields) {
    std::size_t const equals = argument.find('=');
    if (equals == std::string::npos) {
        throw Failure(Status::BadUsage, "'" + argument + "' is not of the form FIELD=VALUE.");
    }
    std::string const path = argument.substr(0, equals);
    std::string const text = argument.substr(equals + 1);
    std::size_t const dot = path.find('.');
    Field const& field = Need(type, path.substr(0, dot));
    Json::Value& slot = fields[field.name];
    if (dot != std::string::npos) {
        if (field.type != Type::Message || field.repeated) {
            throw Failure(Status::BadUsage,
                          "The field " + field.name + " has no parts that could be named; give it as JSON.");
        }
        if (slot.isNull()) {
            slot = Json::Value(Json::objectValue);
        }
        return AddField(*Schema::Instance().FindMessage(field.typeName), argument.substr(dot + 1), slot);
    }
    bool const isJson = field.type == Type::Message || (field.repeated && text.starts_with("["));
    Json::Value value = isJson ? ParseJson(field, text) : Json::Value(text);
    if (field.repeated && !value.isArray()) {
        slot.append(std::move(value));
    } else {
        slot = std::move(value);
    }
}

std::string DescribeFields(MessageType const& type) {
    static constexpr char const* kNames[] = {
        "",      "double",  "float", "int64",  "uint64", "int32",    "fixed64",  "fixed32", "bool",  "string",
        "group", "message", "bytes", "uint32", "enum",   "sfixed32", "sfixed64", "sint32",  "sint64"};
    std::string text;
    for (Field const& field : type.fields) {
        text += text.empty() ? "" : ", ";
        text += field.repeated ? "repeated " : field.required ? "required " : "optional ";
        text += field.typeName.empty() ? kNames[static_cast<int>(field.type)] : field.typeName;
        text += " " + field.name;
    }
    return text;
}

}  // namespace vq::rigctl
