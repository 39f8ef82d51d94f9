#pragma once

#include "Config.pb.h"
#include "DataTypes/SimpleRegistry.h"

#include <array>
#include <string>
#include <string_view>

/// The name of the enumerant that an enumeration starts from; empty when none is declared. It travels in the
/// message's only free text.
inline std::string const& DefaultOf(vq::cfg::Enumeration const& enumeration) {
    return enumeration.label();
}
inline void SetDefaultOf(vq::cfg::Enumeration& enumeration, std::string const& name) {
    enumeration.set_label(name);
}

/// The declared element count of an array type: an integer, or the name of a constant. Not set when the array
/// has no fixed count. It travels in the message's only free value.
inline vq::cfg::Variant const& ElementCountOf(vq::cfg::ArrayType const& type) {
    return type.default_value();
}
inline bool HasElementCount(vq::cfg::ArrayType const& type) {
    return type.has_default_value();
}
inline vq::cfg::Variant& MutableElementCountOf(vq::cfg::ArrayType& type) {
    return *type.mutable_default_value();
}

/// The types that the properties of one device refer to. Copies are deep. No lock: one thread at a time.
class PropertyInfo {
public:
    /// True for a declared enumeration, simple type or array type, and for every built-in name.
    bool IsKnownType(std::string const& name) const;

    /// True for the names in builtinTypes.
    static bool IsBuiltinType(std::string_view name);

    /// The base type of a simple type, and any other name as it is. One step only: a simple type built on a
    /// simple type yields the inner name.
    std::string ConvertSimpleTypeToBaseType(std::string const& name) const;

    /// The types that need no declaration: every base type but "any".
    static constexpr std::array<std::string_view, 19> builtinTypes = {
        "integer",     "float",    "string",       "boolean",     "integerList", "floatList", "stringList",
        "booleanList", "namedMap", "namedMapList", "point2",      "point3",      "vec3",      "vec4",
        "quat",        "rgb",      "rgba",         "keyOrButton", "analogInput",
    };
    SimpleRegistry<std::string, vq::cfg::Enumeration> enumerations;
    SimpleRegistry<std::string, vq::cfg::Constant> constants;
    SimpleRegistry<std::string, vq::cfg::SimpleType> simpleTypes;
    SimpleRegistry<std::string, vq::cfg::ArrayType> arrayTypes;
    SimpleRegistry<std::string, vq::cfg::PropertyCategory> categories;  ///< by path
};
