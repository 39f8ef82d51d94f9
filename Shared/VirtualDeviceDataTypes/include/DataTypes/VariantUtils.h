#pragma once

#include "Config.pb.h"

#include <json/value.h>

#include <ostream>
#include <string>

class PropertyInfo;

// Values between JSON, text and the tagged union of the configuration. No state; any thread. A conversion
// that fails says why in the log, and leaves its result partly built for the caller to discard.

/// Converts a JSON value. Whole numbers become integers (those above the signed 64-bit range wrap), reals
/// become floats, arrays become lists of their common element type, where integers among floats count as
/// floats. An empty array is an empty string list; an object without members leaves `out` as it was.
/// @param name  where the value stands, for messages.
/// @param out   a fresh value; an object appends its members to the named map that is there.
/// @return false for null, for arrays of mixed elements, and for arrays of arrays.
bool ConvertJsonToVariant(std::string const& name, Json::Value const& value, vq::cfg::Variant& out);

/// Converts a value to JSON. An infinite float becomes the greatest finite one of its sign, and one that is
/// no number 0, for JSON's text has neither. False, with an error line, for a value that isn't set, also
/// inside a map.
bool ConvertVariantToJson(vq::cfg::Variant const& value, Json::Value& out);
/// Makes `out` an object. Of entries with equal names the last one wins.
bool ConvertNamedMapToJson(vq::cfg::NamedMap const& map, Json::Value& out);

/// The value as text for people: lists in brackets, maps in braces.
/// @param quoteStrings  puts a string between quotation marks, without escaping its inside. Strings in lists
///                      are never quoted, those in maps always.
std::string ConvertVariantToString(vq::cfg::Variant const& value, bool quoteStrings);
/// Writes the text of a map.
void ConvertNamedMapToString(std::ostream& out, vq::cfg::NamedMap const& map);

/// Makes `out` a string holding `text` and coerces it to the type; results and exceptions are those of
/// CoerceVariantToType.
bool ConvertStringToVariant(std::string const& typeName, std::string const& text, PropertyInfo const& info,
                            vq::cfg::Variant& out);

/// Brings a value to a declared type. A string is parsed: as a word, a number, an enumerant in any case, or
/// as JSON. Integers become floats where the type wants them; an empty list becomes the type's default. A
/// type that nothing declares takes every value.
/// @return false when the value doesn't fit. A bad text has an error line; for the rest the caller words it.
/// @throws std::invalid_argument, std::out_of_range  a string for a number type that doesn't start with a
///         number in range. Callers treat it like false.
bool CoerceVariantToType(vq::cfg::Variant& value, std::string const& typeName, PropertyInfo const& info);

/// The same, with an exception taken for false.
bool TryCoerceVariantToType(vq::cfg::Variant& value, std::string const& typeName, PropertyInfo const& info);

/// The type name that fits the case, such as "integerList". Empty for an unset value or a number outside the
/// cases.
std::string ConvertVariantValueCaseToString(vq::cfg::Variant::ValueCase valueCase);

/// The value as a float. One that is neither float nor integer gives the fallback and a warning with `name`.
float GetVariantFloat(std::string const& name, vq::cfg::Variant const& value, float fallback);

/// True for a list of any kind (a list of maps included) without elements; an empty map is no list.
bool HasEmptyList(vq::cfg::Variant const& value);
