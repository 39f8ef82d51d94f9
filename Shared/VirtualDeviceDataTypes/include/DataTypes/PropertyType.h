#pragma once

#include "Config.pb.h"

#include <string>
#include <string_view>

/// Fixed knowledge about the type names of the property language. Any thread.
namespace PropertyType {

/// True for the names that a declaration may use in any place: the built-in types
/// (PropertyInfo::builtinTypes) but "booleanList", and "any".
bool IsKnownType(std::string_view name);

/// True for the types whose values are lists of floats: lists, points, colours and the quaternion.
bool IsFloatListType(std::string_view name);

}  // namespace PropertyType

/// Sets `out` to the value that a base type has when nothing declares another: zero, the empty text or list,
/// opaque black, or the quaternion 1, 0, 0, 0 (its real part first).
/// @return false, with `out` unchanged, for a name that is no base type or has no default.
bool GetPropertyTypeDefaultValue(std::string const& typeName, vq::cfg::Variant& out);
