#include "Schema.h"

#include <algorithm>

#include "WireReader.h"

// Reads the compiled schema, which is itself a message: the numbers below are those of its fields.

// The file is a set of descriptors as the schema compiler writes it.
__asm__(
    ".pushsection .rodata\n"
    ".balign 16\n"
    ".globl vq_rigctl_schema\n"
    ".globl vq_rigctl_schema_end\n"
    "vq_rigctl_schema:\n"
    ".incbin \"" VQ_SCHEMA_FILE
    "\"\n"
    "vq_rigctl_schema_end:\n"
    ".popsection\n");

extern "C" char const vq_rigctl_schema[];
extern "C" char const vq_rigctl_schema_end[];

namespace vq::rigctl {

namespace {

constexpr int kRequired = 2;
constexpr int kRepeated = 3;

Field ReadField(std::string_view text) {
    Field field;
    for (WireReader reader(text); reader.Next();) {
        switch (reader.number) {
            case 1:
                field.name = reader.bytes;
                break;
            case 3:
                field.number = static_cast<int>(reader.value);
                break;
            case 4:
                field.required = reader.value == kRequired;
                field.repeated = reader.value == kRepeated;
                break;
            case 5:
                field.type = static_cast<Field::Type>(reader.value);
                break;
            case 6:  // with a dot at the front
                field.typeName = reader.bytes.substr(1);
                break;
            default:
                break;
        }
    }
    return field;
}

/// The text of field 1, which is the name of whatever it is.
std::string NameOf(std::string_view text, std::string const& scope) {
    for (WireReader reader(text); reader.Next();) {
        if (reader.number == 1) {
            return scope.empty() ? std::string(reader.bytes) : scope + "." + std::string(reader.bytes);
        }
    }
    return scope;
}

}  // namespace

Field const* MessageType::Find(std::string_view field) const {
    auto const found = std::ranges::find(fields, field, &Field::name);
    return found == fields.end() ? nullptr : &*found;
}

Field const* MessageType::Find(int number) const {
    auto const found = std::ranges::find(fields, number, &Field::number);
    return found == fields.end() ? nullptr : &*found;
}

Schema const& Schema::Instance() {
    static Schema const schema(std::string_view(
        vq_rigctl_schema, static_cast<std::size_t>(vq_rigctl_schema_end - vq_rigctl_schema)));
    return schema;
}

Schema::Schema(std::string_view compiled) {
    for (WireReader reader(compiled); reader.Next();) {
        AddFile(reader.bytes);
    }
}

void Schema::AddFile(std::string_view file) {
    std::string package;
    for (WireReader reader(file); reader.Next();) {
        if (reader.number == 2) {
            package = reader.bytes;
        }
    }
    for (WireReader reader(file); reader.Next();) {
        if (reader.number == 4) {
            AddMessage(package, reader.bytes);
        } else if (reader.number == 5) {
            AddEnum(package, reader.bytes);
        }
    }
}

void Schema::AddMessage(std::string const& scope, std::string_view message) {
    MessageType type;
    type.name = NameOf(message, scope);
    for (WireReader reader(message); reader.Next();) {
        if (reader.number == 2) {
            type.fields.push_back(ReadField(reader.bytes));
        } else if (reader.number == 3) {
            AddMessage(type.name, reader.bytes);
        } else if (reader.number == 4) {
            AddEnum(type.name, reader.bytes);
        }
    }
    m_messages.emplace(type.name, type);
}

void Schema::AddEnum(std::string const& scope, std::string_view enumeration) {
    auto& values = m_enums[NameOf(enumeration, scope)];
    for (WireReader reader(enumeration); reader.Next();) {
        if (reader.number == 2) {
            int number = 0;
            for (WireReader value(reader.bytes); value.Next();) {
                if (value.number == 2) {
                    number = static_cast<int>(value.value);
                }
            }
            values.emplace_back(NameOf(reader.bytes, ""), number);
        }
    }
}

MessageType const* Schema::FindMessage(std::string const& name) const {
    auto const found = m_messages.find(name);
    return found == m_messages.end() ? nullptr : &found->second;
}

std::string const* Schema::FindEnumName(std::string const& enumeration, int value) const {
    auto const found = m_enums.find(enumeration);
    if (found != m_enums.end()) {
        for (auto const& [name, number] : found->second) {
            if (number == value) {
                return &name;
            }
        }
    }
    return nullptr;
}

bool Schema::FindEnumValue(std::string const& enumeration, std::string const& name, int& value) const {
    auto const found = m_enums.find(enumeration);
    if (found != m_enums.end()) {
        for (auto const& [entry, number] : found->second) {
            if (entry == name) {
                value = number;
                return true;
            }
        }
    }
    return false;
}

std::vector<std::string> Schema::Requests() const {
    std::vector<std::string> names;
    for (auto const& [name, type] : m_messages) {
        if (m_messages.contains(name + ".Reply")) {
            names.push_back(name);
        }
    }
    return names;
}

}  // namespace vq::rigctl
