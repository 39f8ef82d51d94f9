#include "DataTypes/PropertyInfo.h"
#include "DataTypes/PropertyType.h"
#include "DataTypes/VariantUtils.h"
#include "Logging/Log.h"
#include "Utils/JsonUtils.h"
#include "Utils/TextUtils.h"

#include <algorithm>
#include <array>
#include <exception>
#include <string_view>

using vq::cfg::Variant;

namespace {

bool Contains(std::array<std::string_view, 5> const& words, std::string_view word) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

bool CoerceTextToBoolean(std::string const& text, Variant& value) {
    bool const isTrue = Contains({"true", "1", "yes", "y", "t"}, text);
    if (!isTrue && !Contains({"false", "0", "no", "n", "f"}, text)) {
        LOG_PLAIN_E("Unexpected value for boolean: %s", text.c_str());
        return false;
    }
    value.set_boolean_value(isTrue);
    return true;
}

bool CoerceTextToInteger(std::string const& text, Variant& value) {
    std::size_t used = 0;
    value.set_integer_value(std::stoll(text, &used, 10));
    if (used != text.size()) {
        LOG_PLAIN_E("Unexpected value for integer: %s", text.c_str());
        return false;
    }
    return true;
}

bool CoerceTextToFloat(std::string const& text, Variant& value) {
    std::size_t used = 0;
    value.set_float_value(std::stof(text, &used));
    if (used != text.size()) {
        LOG_PLAIN_E("Unexpected value for float: %s", text.c_str());
        return false;
    }
    return true;
}

bool CoerceTextToEnumerant(std::string const& text, vq::cfg::Enumeration const& enumeration,
                           std::string const& typeName, Variant& value) {
    std::string const lowered = ToLower(text);
    for (vq::cfg::Enumerant const& enumerant : enumeration.enumerants()) {
        if (ToLower(enumerant.name()) == lowered) {
            value.set_string_value(enumerant.name());
            return true;
        }
    }
    LOG_PLAIN_E("Unrecognized enumerant '%s' for '%s'", text.c_str(), typeName.c_str());
    return false;
}

bool CoerceTextFromJson(std::string const& text, Variant& value) {
    Json::Value parsed;
    std::string errors;
    if (!ParseJson(text, parsed, errors)) {
        LOG_PLAIN_E("Failed to convert from string: %s", errors.c_str());
        return false;
    }
    return ConvertJsonToVariant(text, parsed, value);
}

bool CoerceText(Variant& value, std::string const& base, PropertyInfo const& info) {
    std::string const text = value.string_value();  // a copy: the value is overwritten while it is read
    if (base == "boolean") {
        return CoerceTextToBoolean(text, value);
    }
    if (base == "integer") {
        return CoerceTextToInteger(text, value);
    }
    if (base == "float") {
        return CoerceTextToFloat(text, value);
    }
    if (base == "any") {
        return true;
    }
    if (vq::cfg::Enumeration const* const enumeration = info.enumerations.Find(base)) {
        return CoerceTextToEnumerant(text, *enumeration, base, value);
    }
    return CoerceTextFromJson(text, value);
}

void TurnIntoFloatList(Variant& value) {
    vq::cfg::FloatList floats;
    floats.mutable_values()->Reserve(value.integer_list().values_size());
    for (std::int64_t const element : value.integer_list().values()) {
        floats.add_values(static_cast<float>(element));
    }
    *value.mutable_float_list() = std::move(floats);
}

}  // namespace

bool ConvertStringToVariant(std::string const& typeName, std::string const& text, PropertyInfo const& info,
                            Variant& out) {
    out.set_string_value(text);
    return CoerceVariantToType(out, typeName, info);
}

bool CoerceVariantToType(Variant& value, std::string const& typeName, PropertyInfo const& info) {
    std::string const base = info.ConvertSimpleTypeToBaseType(typeName);
    Variant::ValueCase const valueCase = value.value_case();
    if (valueCase == Variant::kStringValue && base != "string") {
        return CoerceText(value, base, info);
    }
    if (valueCase == Variant::kIntegerValue && base == "float") {
        value.set_float_value(static_cast<float>(value.integer_value()));
        return true;
    }
    if (valueCase == Variant::kIntegerList && PropertyType::IsFloatListType(base)) {
        TurnIntoFloatList(value);
        return true;
    }
    // Maps need no rule of their own: the default of their types has their case.
    Variant defaultValue;
    if (!GetPropertyTypeDefaultValue(base, defaultValue) || defaultValue.value_case() == valueCase) {
        return true;
    }
    if (HasEmptyList(value)) {
        value = std::move(defaultValue);
        return true;
    }
    return false;
}

bool TryCoerceVariantToType(Variant& value, std::string const& typeName, PropertyInfo const& info) {
    try {
        return CoerceVariantToType(value, typeName, info);
    } catch (std::exception const&) {
        return false;
    }
}
