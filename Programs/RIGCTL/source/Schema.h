#pragma once

#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vq::rigctl {

/// One field of a message type.
struct Field {
    /// Numbers as in a compiled schema.
    enum class Type : int {
        Double = 1,
        Float = 2,
        Int64 = 3,
        Uint64 = 4,
        Int32 = 5,
        Fixed64 = 6,
        Fixed32 = 7,
        Bool = 8,
        String = 9,
        Group = 10,
        Message = 11,
        Bytes = 12,
        Uint32 = 13,
        Enum = 14,
        Sfixed32 = 15,
        Sfixed64 = 16,
        Sint32 = 17,
        Sint64 = 18,
    };
    std::string name;
    int number = 0;
    bool required = false;
    bool repeated = false;
    Type type = Type::String;
    std::string typeName;  ///< full name, of messages and enumerations
};

struct MessageType {
    std::string name;  ///< full name
    std::vector<Field> fields;

    Field const* Find(std::string_view field) const;
    Field const* Find(int number) const;
};

/// The message types of all protocols, as they were compiled into the program. The generated classes cannot
/// tell the names of their fields, and this program speaks of them by name.
///
/// Any thread.
class Schema {
public:
    static Schema const& Instance();
    Schema(Schema const&) = delete;
    Schema& operator=(Schema const&) = delete;

    /// Null when there is none.
    MessageType const* FindMessage(std::string const& name) const;
    /// Name of a value of an enumeration; null when there is none.
    std::string const* FindEnumName(std::string const& enumeration, int value) const;
    /// True when the enumeration has a value of that name.
    bool FindEnumValue(std::string const& enumeration, std::string const& name, int& value) const;
    /// Full names of the types that have a Reply, sorted.
    std::vector<std::string> Requests() const;

private:
    explicit Schema(std::string_view compiled);
    void AddFile(std::string_view file);
    void AddMessage(std::string const& scope, std::string_view message);
    void AddEnum(std::string const& scope, std::string_view enumeration);

    std::map<std::string, MessageType> m_messages;
    std::map<std::string, std::vector<std::pair<std::string, int>>> m_enums;
};

}  // namespace vq::rigctl
