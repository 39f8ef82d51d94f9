#include "DataTypes/PropertyUtils.h"

#include "DataTypes/PropertyType.h"
#include "DataTypes/VariantUtils.h"
#include "JsonToVariant.h"
#include "Logging/Log.h"
#include "PropertyParsing.h"
#include "Utils/JsonFields.h"
#include "Utils/JsonUtils.h"
#include "Utils/TextUtils.h"

#include <algorithm>
#include <array>
#include <memory>

using vq::cfg::CommonProperty;
using vq::cfg::SimpleType;
using vq::cfg::Variant;

namespace {

/// The members of a property; null for each that is absent.
struct PropertyMembers {
    explicit PropertyMembers(Json::Value const& value)
        : PropertyMembers(FindJsonMembers<11>(
              value, {"Label", "Description", "Default", "Type", "UserVisible", "Category", "Priority",
                      "Metadata", "LowerLimit", "UpperLimit", "OutOfRangeHandling"})) {}

    Json::Value const* label;
    Json::Value const* description;
    Json::Value const* defaultValue;
    Json::Value const* type;
    Json::Value const* userVisible;
    Json::Value const* category;
    Json::Value const* priority;
    Json::Value const* metadata;
    RangeMembers range;

private:
    explicit PropertyMembers(std::array<Json::Value const*, 11> const& found)
        : label(found[0]),
          description(found[1]),
          defaultValue(found[2]),
          type(found[3]),
          userVisible(found[4]),
          category(found[5]),
          priority(found[6]),
          metadata(found[7]),
          range{found[8], found[9], found[10]} {}
};

bool ParseNamedMapAt(JsonPath const& path, Json::Value const* section, std::string_view key,
                     vq::cfg::NamedMap& out) {
    if (section == nullptr || section->isNull()) {
        return true;
    }
    JsonPath const sectionPath(path, ".", key);
    if (!section->isObject()) {
        LOG_E("%s is not an object", sectionPath.Text().c_str());
        return false;
    }
    LOG_V("processing %s", sectionPath.Text().c_str());
    for (auto member = section->begin(); member != section->end(); ++member) {
        vq::cfg::NamedMapFieldEntry& entry = *out.add_entries();
        entry.set_name(member.name());
        if (!ConvertJsonAt(JsonPath(sectionPath, ".", entry.name()), *member, *entry.mutable_value())) {
            return false;
        }
    }
    return true;
}

/// Reads a string member, if present, into a field that `mutableField` makes.
template <typename MutableField>
bool ReadOptionalString(JsonPath const& path, Json::Value const* member, char const* key,
                        MutableField mutableField) {
    return member == nullptr || ReadStringAt(path, member, key, true, *mutableField());
}

bool ReadTexts(JsonPath const& path, PropertyMembers const& members, CommonProperty& out) {
    return ReadOptionalString(path, members.label, "Label", [&] { return out.mutable_label(); }) &&
           ReadOptionalString(path, members.description, "Description",
                              [&] { return out.mutable_description(); });
}

bool ReadDefault(JsonPath const& path, Json::Value const* member, CommonProperty& out) {
    return member == nullptr ||
           ConvertJsonAt(JsonPath(path, ".", "Default"), *member, *out.mutable_default_value());
}

bool ReadType(JsonPath const& path, Json::Value const* member, CommonProperty& out) {
    // Set in any case: the field is a required one.
    return ReadStringAt(path, member, "Type", true, *out.mutable_type());
}

/// Wrong kinds of these two are logged, and the fields stay unset.
void ReadUserVisible(Json::Value const* member, CommonProperty& out) {
    bool userVisible = false;
    if (member != nullptr && GetBoolField(*member, "UserVisible", userVisible)) {
        out.set_user_visible(userVisible);
    }
}

void ReadPriority(Json::Value const* member, CommonProperty& out) {
    int priority = 0;
    if (member != nullptr && GetIntField(*member, "Priority", priority)) {
        out.set_priority(priority);
    }
}

bool ReadMetadata(JsonPath const& path, Json::Value const* member, CommonProperty& out) {
    return member == nullptr || ParseNamedMapAt(path, member, "Metadata", *out.mutable_metadata());
}

void WarnOfUndefinedNames(JsonPath const& path, PropertyMembers const& members, PropertyInfo const& info,
                          CommonProperty const& property) {
    if (members.type != nullptr && !info.IsKnownType(property.type())) {
        LOG_PLAIN_W("%s has undefined type '%s'", path.Text().c_str(), property.type().c_str());
    }
    if (members.category != nullptr && !info.categories.Contains(property.category())) {
        LOG_PLAIN_W("%s has undefined category '%s'", path.Text().c_str(), property.category().c_str());
    }
}

/// Gives a property with range keys a simple type of its own, based on its declared type.
bool MakeSyntheticType(JsonPath const& path, RangeMembers const& range, PropertyInfo& info,
                       CommonProperty& property) {
    std::string const typeName = property.name() + "SimpleType";
    auto owned = std::make_unique<SimpleType>();
    SimpleType& type = *owned;
    type.set_name(typeName);
    type.set_base_type(property.type());
    if (info.simpleTypes.Add(typeName, std::move(owned)) != nullptr) {
        LOG_E("%s unexpectedly overlaps another simple type (%s); make an explicit type or fix this bug",
              path.Text().c_str(), typeName.c_str());
        return false;
    }
    if (!ParseRangeInfoAt(path, range, info, type)) {
        return false;
    }
    LOG_V("Created synthetic SimpleType '%s' for '%s'", typeName.c_str(), property.name().c_str());
    property.set_type(typeName);
    return true;
}

bool ParseCommonPropertyAt(JsonPath const& path, std::string_view name, Json::Value const& value,
                           PropertyInfo& info, CommonProperty& out) {
    PropertyMembers const members(value);
    out.set_name(name.data(), name.size());
    if (!ReadTexts(path, members, out) || !ReadDefault(path, members.defaultValue, out) ||
        !ReadType(path, members.type, out)) {
        return false;
    }
    ReadUserVisible(members.userVisible, out);
    if (!ReadOptionalString(path, members.category, "Category", [&] { return out.mutable_category(); })) {
        return false;
    }
    ReadPriority(members.priority, out);
    if (!ReadMetadata(path, members.metadata, out)) {
        return false;
    }
    WarnOfUndefinedNames(path, members, info, out);
    if (!members.range.IsEmpty() && !MakeSyntheticType(path, members.range, info, out)) {
        return false;
    }
    return CompletePropertyAt(path, info, out);
}

bool ParseOutOfRangeHandling(JsonPath const& path, Json::Value const* member, SimpleType& type) {
    std::string text;
    if (!ReadStringAt(path, member, "OutOfRangeHandling", false, text)) {
        return false;
    }
    std::string const word = ToLower(text);
    if (word == "clamp") {
        type.set_out_of_range_handling(vq::cfg::OutOfRangeHandling_Clamp);
    } else if (word == "wrap") {
        type.set_out_of_range_handling(vq::cfg::OutOfRangeHandling_Wrap);
    } else {
        LOG_E("%s has unknown OutOfRangeHandling value '%s'", path.Text().c_str(), text.c_str());
        return false;
    }
    return true;
}

bool CoerceLimit(JsonPath const& path, PropertyInfo const& info, SimpleType const& type, char const* which,
                 Variant& limit) {
    if (TryCoerceVariantToType(limit, type.base_type(), info)) {
        return true;
    }
    LOG_PLAIN_E("%s has mismatched Type %s and %s Limit %s", path.Text().c_str(), type.base_type().c_str(),
                which, ConvertVariantToString(limit, false).c_str());
    return false;
}

/// A property with a type and no default takes that of its type; some types may do without.
bool CompleteDefault(JsonPath const& path, PropertyInfo const& info, CommonProperty& property) {
    Variant value;
    if (GetTypeDefaultValue(info, property, value)) {
        *property.mutable_default_value() = std::move(value);
        return true;
    }
    if (info.arrayTypes.Contains(property.type()) || PropertyInfo::IsBuiltinType(property.type())) {
        return true;
    }
    LOG_PLAIN_E("%s should have a Default (I can't guess for type %s)", path.Text().c_str(),
                property.type().c_str());
    return false;
}

/// A default of an enumeration has to be one of its names, in case too, or the empty text, which stands for
/// the enumeration's own default.
bool CheckEnumerant(JsonPath const& path, vq::cfg::Enumeration const& enumeration, CommonProperty& property) {
    Variant& value = *property.mutable_default_value();
    if (value.value_case() != Variant::kStringValue) {
        LOG_PLAIN_E("%s should have a string value for enumeration %s", path.Text().c_str(),
                    property.type().c_str());
        return false;
    }
    if (value.string_value().empty()) {
        value.set_string_value(DefaultOf(enumeration));
    }
    std::string const& text = value.string_value();
    auto const& enumerants = enumeration.enumerants();
    if (text.empty() || std::any_of(enumerants.begin(), enumerants.end(),
                                    [&](auto const& enumerant) { return enumerant.name() == text; })) {
        return true;
    }
    LOG_PLAIN_E("%s has unknown value '%s' for enumeration %s", path.Text().c_str(), text.c_str(),
                property.type().c_str());
    return false;
}

bool CoerceDefault(JsonPath const& path, PropertyInfo const& info, CommonProperty& property) {
    // One step to the base type here and one in the coercion: a simple type may build on another.
    std::string const target = info.ConvertSimpleTypeToBaseType(property.type());
    if (TryCoerceVariantToType(*property.mutable_default_value(), target, info)) {
        return true;
    }
    LOG_PLAIN_E("%s has mismatched Type %s and Default %s", path.Text().c_str(), property.type().c_str(),
                ConvertVariantToString(property.default_value(), false).c_str());
    return false;
}

}  // namespace

bool ParseProperties(std::string const& context, Json::Value const& root, std::string const& key,
                     PropertyInfo& info,
                     std::function<bool(Json::Value const&, CommonProperty&)> const& onProperty) {
    Json::Value const* const section = FindJsonMember(root, key);
    if (section == nullptr || section->isNull()) {
        LOG_V("%s: no %s found", context.c_str(), key.c_str());
        return true;
    }
    if (!section->isObject()) {
        LOG_E("%s: %s is expected to be an object", context.c_str(), key.c_str());
        return false;
    }
    JsonPath const contextPath(context);
    for (auto member = section->begin(); member != section->end(); ++member) {
        std::string_view const name = MemberNameOf(member);
        JsonPath const path(contextPath, " '", name, "'");
        LOG_V("processing %s...", path.Text().c_str());
        CommonProperty property;
        if (!ParseCommonPropertyAt(path, name, *member, info, property) || !onProperty(*member, property)) {
            return false;
        }
    }
    return true;
}

bool ParseCommonProperty(std::string const& path, std::string const& name, Json::Value const& value,
                         PropertyInfo& info, CommonProperty& out) {
    return ParseCommonPropertyAt(JsonPath(path), name, value, info, out);
}

bool ParseNamedMap(std::string const& path, Json::Value const& parent, std::string const& key,
                   vq::cfg::NamedMap& out) {
    return ParseNamedMapAt(JsonPath(path), FindJsonMember(parent, key), key, out);
}

bool HasRangeInfo(Json::Value const& value) {
    return !PropertyMembers(value).range.IsEmpty();
}

bool ParseRangeInfo(std::string const& path, Json::Value const& value, PropertyInfo const& info,
                    SimpleType& type) {
    return ParseRangeInfoAt(JsonPath(path), PropertyMembers(value).range, info, type);
}

bool ParseRangeInfoAt(JsonPath const& path, RangeMembers const& members, PropertyInfo const& info,
                      SimpleType& type) {
    auto const [lower, upper, handling] = members;
    if (lower != nullptr &&
        !ConvertJsonAt(JsonPath(path, ".", "LowerLimit"), *lower, *type.mutable_lower_limit())) {
        return false;
    }
    if (upper != nullptr &&
        !ConvertJsonAt(JsonPath(path, ".", "UpperLimit"), *upper, *type.mutable_upper_limit())) {
        return false;
    }
    if (handling != nullptr) {
        if (lower == nullptr || upper == nullptr) {
            LOG_E("%s cannot define OutOfRangeHandling unless both LowerLimit and UpperLimit are provided",
                  path.Text().c_str());
            return false;
        }
        if (!ParseOutOfRangeHandling(path, handling, type)) {
            return false;
        }
    }
    return (lower == nullptr || CoerceLimit(path, info, type, "Lower", *type.mutable_lower_limit())) &&
           (upper == nullptr || CoerceLimit(path, info, type, "Upper", *type.mutable_upper_limit()));
}

bool CompleteProperty(std::string const& path, PropertyInfo const& info, CommonProperty& property) {
    return CompletePropertyAt(JsonPath(path), info, property);
}

bool CompletePropertyAt(JsonPath const& path, PropertyInfo const& info, CommonProperty& property) {
    if (!property.has_label()) {
        property.set_label(SynthesizeLabel(property.name()));
    }
    if (!property.has_description()) {
        property.set_description("");
    }
    if (!property.has_user_visible()) {
        property.set_user_visible(true);
    }
    bool const hasType = !property.type().empty();
    if (!property.has_default_value()) {
        if (!hasType) {
            LOG_PLAIN_E("%s should have a Type or Default", path.Text().c_str());
            return false;
        }
        return CompleteDefault(path, info, property);
    }
    if (!hasType) {
        property.set_type(ConvertVariantValueCaseToString(property.default_value().value_case()));
        return true;
    }
    if (vq::cfg::Enumeration const* const enumeration = info.enumerations.Find(property.type())) {
        return CheckEnumerant(path, *enumeration, property);
    }
    return CoerceDefault(path, info, property);
}
