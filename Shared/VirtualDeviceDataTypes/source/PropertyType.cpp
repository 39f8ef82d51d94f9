#include "DataTypes/PropertyType.h"

#include "DataTypes/PropertyInfo.h"

#include <algorithm>
#include <array>
#include <initializer_list>

using vq::cfg::Variant;

namespace {

constexpr std::array<std::string_view, 8> FloatListTypes = {
    "floatList", "point2", "point3", "vec3", "vec4", "rgb", "rgba", "quat",
};

bool SetFloats(Variant& out, std::initializer_list<float> values) {
    vq::cfg::FloatList& list = *out.mutable_float_list();
    list.Clear();
    for (float const value : values) {
        list.add_values(value);
    }
    return true;
}

bool SetScalarDefault(std::string_view typeName, Variant& out) {
    if (typeName == "boolean") {
        out.set_boolean_value(false);
    } else if (typeName == "integer") {
        out.set_integer_value(0);
    } else if (typeName == "float") {
        out.set_float_value(0);
    } else if (typeName == "string") {
        out.set_string_value("");
    } else {
        return false;
    }
    return true;
}

bool SetContainerDefault(std::string_view typeName, Variant& out) {
    if (typeName == "booleanList") {
        out.mutable_boolean_list()->Clear();
    } else if (typeName == "integerList") {
        out.mutable_integer_list()->Clear();
    } else if (typeName == "floatList") {
        out.mutable_float_list()->Clear();
    } else if (typeName == "stringList") {
        out.mutable_string_list()->Clear();
    } else if (typeName == "namedMap") {
        out.mutable_named_map()->Clear();
    } else if (typeName == "namedMapList") {
        out.mutable_named_map_list()->Clear();
    } else {
        return false;
    }
    return true;
}

bool SetGeometryDefault(std::string_view typeName, Variant& out) {
    if (typeName == "point2") {
        return SetFloats(out, {0, 0});
    }
    if (typeName == "point3" || typeName == "vec3" || typeName == "rgb") {
        return SetFloats(out, {0, 0, 0});
    }
    if (typeName == "vec4") {
        return SetFloats(out, {0, 0, 0, 0});
    }
    if (typeName == "quat") {
        return SetFloats(out, {1, 0, 0, 0});  // real part first
    }
    if (typeName == "rgba") {
        return SetFloats(out, {0, 0, 0, 1});
    }
    return false;
}

}  // namespace

namespace PropertyType {

bool IsKnownType(std::string_view name) {
    return name == "any" || (name != "booleanList" && PropertyInfo::IsBuiltinType(name));
}

bool IsFloatListType(std::string_view name) {
    return std::ranges::find(FloatListTypes, name) != FloatListTypes.end();
}

}  // namespace PropertyType

bool GetPropertyTypeDefaultValue(std::string const& typeName, Variant& out) {
    return SetScalarDefault(typeName, out) || SetContainerDefault(typeName, out) ||
           SetGeometryDefault(typeName, out);
}
