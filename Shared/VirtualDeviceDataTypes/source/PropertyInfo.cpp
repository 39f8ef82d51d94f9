#include "DataTypes/PropertyInfo.h"

#include "DataTypes/PropertyType.h"

#include <algorithm>

bool PropertyInfo::IsKnownType(std::string const& name) const {
    return PropertyType::IsKnownType(name) || IsBuiltinType(name) || enumerations.Contains(name) ||
           simpleTypes.Contains(name) || arrayTypes.Contains(name);
}

bool PropertyInfo::IsBuiltinType(std::string_view name) {
    return std::ranges::find(builtinTypes, name) != builtinTypes.end();
}

std::string PropertyInfo::ConvertSimpleTypeToBaseType(std::string const& name) const {
    vq::cfg::SimpleType const* const type = simpleTypes.Find(name);
    return type != nullptr ? type->base_type() : name;
}
