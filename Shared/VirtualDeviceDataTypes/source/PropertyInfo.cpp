#include "DataTypes/PropertyInfo.h"

#include "DataTypes/PropertyType.h"

bool PropertyInfo::IsKnownType(std::string const& name) const {
    return PropertyType::IsKnownType(name) || PropertyType::IsBuiltinType(name) ||
           enumerations.Contains(name) || simpleTypes.Contains(name) || arrayTypes.Contains(name);
}

bool PropertyInfo::IsBuiltinType(std::string const& name) const {
    return PropertyType::IsBuiltinType(name);
}

std::string PropertyInfo::ConvertSimpleTypeToBaseType(std::string const& name) const {
    vq::cfg::SimpleType const* const type = simpleTypes.Find(name);
    return type != nullptr ? type->base_type() : name;
}
