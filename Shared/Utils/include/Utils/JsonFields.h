#pragma once

#include <json/value.h>

#include <string>

// Readers of single fields, lenient in kind and precise in their log lines. The readers of numbers and bools
// take the field's value, already looked up (null when absent), and its name for messages. Any thread.

/// An int, a real or a string that holds an int. A real must have no fraction (a warning tells of it) and any
/// number must fit 32 bits; otherwise an error line, 0 and false. Null is 0 and false without a line.
bool TryGetIntField(Json::Value const& value, std::string const& name, int& out);
/// As TryGetIntField, with an error line "does not exist" after any failure.
bool GetIntField(Json::Value const& value, std::string const& name, int& out);
/// As TryGetIntField, with the fallback as the result of any failure.
int GetIntFieldWithDefault(Json::Value const& value, std::string const& name, int fallback);

/// A number, or a string that holds one; anything else is an error line, 0 and false. Null is 0 and false
/// without a line.
bool TryGetDoubleField(Json::Value const& value, std::string const& name, double& out);
/// As TryGetDoubleField, with an error line "does not exist" after any failure.
bool GetDoubleField(Json::Value const& value, std::string const& name, double& out);
/// As TryGetDoubleField, with the fallback as the result of any failure.
double GetDoubleFieldWithDefault(Json::Value const& value, std::string const& name, double fallback);

/// A bool; anything else is false and false, without a line.
bool TryGetBoolField(Json::Value const& value, std::string const& name, bool& out);
/// As TryGetBoolField, with an error line "does not exist" after any failure.
bool GetBoolField(Json::Value const& value, std::string const& name, bool& out);
/// As TryGetBoolField, with the fallback as the result of any failure.
bool GetBoolFieldWithDefault(Json::Value const& value, std::string const& name, bool fallback);

/// A string. Anything else is an error line with `name`, an empty `out` and false.
bool TryGetStringField(std::string const& name, Json::Value const& value, std::string& out);

/// The string member `key` of `object`; `out` is the fallback unless it is there.
/// @param path      where `object` stands, for the error line.
/// @param object    one that is no object counts as empty.
/// @param optional  an absent member is true; otherwise it is an error line and false. A member that is no
///                  string is an error line and false in any case.
bool TryGetStringField(std::string const& path, Json::Value const& object, std::string const& key,
                       std::string& out, bool optional, std::string const& fallback);
