#pragma once

#include "Config.pb.h"
#include "DataTypes/PropertyInfo.h"

#include <json/value.h>

#include <functional>
#include <string>

// Readers of the property type language: the JSON in which manifests declare types and properties.
//
// Each returns false after the first hard error of its section, with an error line that names the place by a
// growing path; names that nothing declares are only warnings. Nothing is rolled back: after a failure the
// caller discards the PropertyInfo. In all of them `root` and `value` may be any JSON; one that is no object
// counts as empty. No state; any thread.

/// Reads the sections "Constants", "EnumerationTypes", "SimpleTypes", "ArrayTypes" and "PropertyCategories",
/// all optional.
bool ParseTypeInfo(Json::Value const& root, PropertyInfo& info);

/// Reads the array types from the array `root[key]`; an absent one is true.
bool ParseArrayTypes(Json::Value const& root, std::string const& key, PropertyInfo& info);

/// Reads the property categories from the array `root[key]`; an absent one is true.
bool ParseCategories(Json::Value const& root, std::string const& key,
                     SimpleRegistry<std::string, vq::cfg::PropertyCategory>& categories);

/// Reads the properties from the object `root[key]`, in the order of their names; null or absent is true.
/// @param context     names the section in messages.
/// @param onProperty  gets each completed property with the JSON it came from;
///                    false ends the walk with false.
bool ParseProperties(std::string const& context, Json::Value const& root, std::string const& key,
                     PropertyInfo& info,
                     std::function<bool(Json::Value const&, vq::cfg::CommonProperty&)> const& onProperty);

/// Reads one property and completes it. Range keys in it make it a simple type of its own, which is added to
/// `info`.
bool ParseCommonProperty(std::string const& path, std::string const& name, Json::Value const& value,
                         PropertyInfo& info, vq::cfg::CommonProperty& out);

/// Reads "LowerLimit", "UpperLimit" and "OutOfRangeHandling" into a type whose base type is set.
bool ParseRangeInfo(std::string const& path, Json::Value const& value, PropertyInfo const& info,
                    vq::cfg::SimpleType& type);

/// True when any of the keys of ParseRangeInfo is there.
bool HasRangeInfo(Json::Value const& value);

/// Appends the members of the object `parent[key]` to a map, in the order of their names; null or absent is
/// true.
bool ParseNamedMap(std::string const& path, Json::Value const& parent, std::string const& key,
                   vq::cfg::NamedMap& out);

/// Fills in what a property left out (label, description, visibility, type from default, default from type)
/// and brings the default to the type.
bool CompleteProperty(std::string const& path, PropertyInfo const& info, vq::cfg::CommonProperty& property);

/// A caption for an identifier: "UpdateHertz" becomes "Update hertz".
std::string SynthesizeLabel(std::string const& name);

/// The property's default, or else that of its type.
/// @return false, with `out` unchanged, when the type has none.
/// @throws google::protobuf::FatalException  the type is an enumeration without enumerants and default.
bool GetTypeDefaultValue(PropertyInfo const& info, vq::cfg::CommonProperty const& property,
                         vq::cfg::Variant& out);

/// Replaces the lists of the message by copies of all that `info` holds.
void FillCommonPropertyInfo(PropertyInfo const& info, vq::cfg::CommonPropertyInfo& out);

/// Resolves the value of a path property.
/// @param root   names the directory that `value` is relative to: "NONE", "VQSDK", "VQ_VDS_DATA", "USER_HOME"
///               or "USER_TEMP". Others warn.
/// @param value  an absolute path is the result, whatever the root.
std::string ResolveRelativePathPropertyValue(std::string const& root, std::string const& value);
