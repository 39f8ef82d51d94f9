#include "DataTypes/PropertyUtils.h"
#include "DataTypes/VariantUtils.h"
#include "JsonToVariant.h"
#include "Logging/Log.h"
#include "PropertyParsing.h"
#include "Utils/JsonFields.h"
#include "Utils/JsonUtils.h"

#include <algorithm>
#include <memory>

using vq::cfg::Variant;

bool ReadStringAt(JsonPath const& path, Json::Value const* member, char const* key, bool optional,
                  std::string& out) {
    if (member == nullptr && optional) {
        return true;
    }
    if (member == nullptr || !member->isString()) {
        LOG_E("expected string for %s.%s field", path.Text().c_str(), key);
        return false;
    }
    out = StringViewOf(*member);
    return true;
}

namespace {

bool ParseConstants(Json::Value const& root, PropertyInfo& info) {
    std::string const key = "Constants";
    Json::Value const* const section = FindJsonMember(root, key);
    if (section == nullptr) {
        return true;
    }
    LOG_V("processing %s", key.c_str());
    if (!section->isObject()) {
        LOG_E("%s is not an object", key.c_str());
        return false;
    }
    JsonPath const path(key);
    for (auto member = section->begin(); member != section->end(); ++member) {
        auto constant = std::make_unique<vq::cfg::Constant>();
        constant->set_name(member.name());
        if (!ConvertJsonAt(JsonPath(path, ".", constant->name()), *member, *constant->mutable_value())) {
            return false;
        }
        std::string const name = constant->name();
        if (info.constants.Add(name, std::move(constant)) != nullptr) {
            LOG_E("Redefining %s '%s'", key.c_str(), name.c_str());
            return false;
        }
    }
    return true;
}

bool HasEnumerant(vq::cfg::Enumeration const& enumeration, std::string const& name) {
    auto const& enumerants = enumeration.enumerants();
    return std::any_of(enumerants.begin(), enumerants.end(),
                       [&name](vq::cfg::Enumerant const& enumerant) { return enumerant.name() == name; });
}

bool HasEnumerantLabel(vq::cfg::Enumeration const& enumeration, std::string const& label) {
    auto const& enumerants = enumeration.enumerants();
    return std::any_of(enumerants.begin(), enumerants.end(),
                       [&label](vq::cfg::Enumerant const& enumerant) { return enumerant.label() == label; });
}

void AddEnumerant(vq::cfg::Enumeration& enumeration, std::string const& name, std::string const& label,
                  bool userVisible) {
    vq::cfg::Enumerant& enumerant = *enumeration.add_enumerants();
    enumerant.set_name(name);
    enumerant.set_label(label);
    enumerant.set_flag(userVisible);
}

/// Reads the short form: a list of names.
bool ParseEnumerationValues(JsonPath const& path, Json::Value const& values,
                            vq::cfg::Enumeration& enumeration) {
    if (!values.isArray()) {
        LOG_PLAIN_E("%s Values should be a list", path.Text().c_str());
        return false;
    }
    std::string text;
    for (Json::Value const& value : values) {
        if (!ConvertJsonToText(value, text)) {
            LOG_PLAIN_E("%s Values should be a list", path.Text().c_str());
            return false;
        }
        if (HasEnumerant(enumeration, text)) {
            LOG_PLAIN_E("%s reused value %s", path.Text().c_str(), text.c_str());
            return false;
        }
        AddEnumerant(enumeration, text, text, true);
    }
    return true;
}

bool ParseEnumerant(JsonPath const& path, JsonPath const& enumerantPath, Json::Value const& value,
                    vq::cfg::Enumeration& enumeration) {
    auto const [nameMember, labelMember, visible] =
        FindJsonMembers<3>(value, {"Name", "Label", "UserVisible"});
    std::string name;
    std::string label;
    if (!ReadStringAt(enumerantPath, nameMember, "Name", false, name) ||
        !ReadStringAt(enumerantPath, labelMember, "Label", true, label)) {
        return false;
    }
    if (label.empty()) {
        label = SynthesizeLabel(name);
    }
    bool const userVisible = visible == nullptr || GetBoolFieldWithDefault(*visible, "UserVisible", true);
    if (HasEnumerant(enumeration, name)) {
        LOG_PLAIN_E("%s reused Name %s", path.Text().c_str(), name.c_str());
        return false;
    }
    if (HasEnumerantLabel(enumeration, label)) {
        LOG_PLAIN_E("%s reused Label %s for %s", path.Text().c_str(), label.c_str(), name.c_str());
        return false;
    }
    AddEnumerant(enumeration, name, label, userVisible);
    return true;
}

/// Reads the long form: a list of objects.
bool ParseEnumerationEnums(JsonPath const& path, Json::Value const* enums,
                           vq::cfg::Enumeration& enumeration) {
    if (enums == nullptr) {
        LOG_PLAIN_E("%s defines neither Values nor Enums", path.Text().c_str());
        return false;
    }
    if (!enums->isArray()) {
        LOG_PLAIN_E("%s Enums should be a list", path.Text().c_str());
        return false;
    }
    Json::ArrayIndex index = 0;
    for (Json::Value const& value : *enums) {
        if (!ParseEnumerant(path, JsonPath(path, index), value, enumeration)) {
            return false;
        }
        ++index;
    }
    return true;
}

bool ParseEnumeration(JsonPath const& path, Json::Value const& value, vq::cfg::Enumeration& enumeration) {
    Json::Value const* const values = FindJsonMember(value, "Values");
    bool const parsed = values != nullptr
                            ? ParseEnumerationValues(path, *values, enumeration)
                            : ParseEnumerationEnums(path, FindJsonMember(value, "Enums"), enumeration);
    if (!parsed) {
        return false;
    }
    Json::Value const* const defaultName = FindJsonMember(value, "Default");
    if (defaultName == nullptr || defaultName->isNull()) {
        return true;
    }
    if (!defaultName->isString()) {
        LOG_E("%s Default should be a string", path.Text().c_str());
        return false;
    }
    SetDefaultOf(enumeration, defaultName->asString());
    return true;
}

bool ParseEnumerationTypes(Json::Value const& root, PropertyInfo& info) {
    std::string const key = "EnumerationTypes";
    Json::Value const* const section = FindJsonMember(root, key);
    if (section == nullptr) {
        return true;
    }
    if (!section->isObject()) {
        LOG_E("%s should be an object", key.c_str());
        return false;
    }
    JsonPath const kind("Enumeration ");
    for (auto member = section->begin(); member != section->end(); ++member) {
        std::string const name = member.name();
        auto enumeration = std::make_unique<vq::cfg::Enumeration>();
        enumeration->set_name(name);
        if (!ParseEnumeration(JsonPath(kind, "'", name, "'"), *member, *enumeration)) {
            return false;
        }
        // The later of two equal names wins.
        info.enumerations.Add(name, std::move(enumeration));
    }
    return true;
}

bool ParseSimpleType(std::string const& key, Json::Value const& value, PropertyInfo& info) {
    auto const [nameMember, baseType, defaultValue, lower, upper, handling] = FindJsonMembers<6>(
        value, {"Name", "BaseType", "Default", "LowerLimit", "UpperLimit", "OutOfRangeHandling"});
    JsonPath const section(key);
    std::string name;
    if (!ReadStringAt(section, nameMember, "Name", false, name)) {
        return false;
    }
    JsonPath const path(section, "[", name, "]");
    LOG_V("processing %s...", path.Text().c_str());
    auto type = std::make_unique<vq::cfg::SimpleType>();
    type->set_name(name);
    if (!ReadStringAt(path, baseType, "BaseType", false, *type->mutable_base_type())) {
        return false;
    }
    if (!info.IsKnownType(type->base_type())) {
        LOG_PLAIN_W("%s has undefined base type '%s'", path.Text().c_str(), type->base_type().c_str());
    }
    if (defaultValue != nullptr &&
        !ConvertJsonAt(JsonPath(path, ".", "Default"), *defaultValue, *type->mutable_default_value())) {
        return false;
    }
    if (!ParseRangeInfoAt(path, RangeMembers{lower, upper, handling}, info, *type)) {
        return false;
    }
    if (info.simpleTypes.Add(name, std::move(type)) != nullptr) {
        LOG_E("Redefined %s '%s'", key.c_str(), name.c_str());
        return false;
    }
    return true;
}

bool ParseSimpleTypes(Json::Value const& root, PropertyInfo& info) {
    std::string const key = "SimpleTypes";
    Json::Value const* const section = FindJsonMember(root, key);
    if (section == nullptr) {
        return true;
    }
    LOG_V("processing %s", key.c_str());
    if (!section->isArray()) {
        LOG_E("%s is not an array", key.c_str());
        return false;
    }
    return std::all_of(section->begin(), section->end(),
                       [&](Json::Value const& value) { return ParseSimpleType(key, value, info); });
}

/// Reads a count: a number, the name of a constant, or "resizable", for which nothing is stored.
bool ParseElementCount(JsonPath const& path, Json::Value const& value, PropertyInfo const& info,
                       vq::cfg::ArrayType& type) {
    Variant count;
    if (!ConvertJsonAt(JsonPath(path, ".", "ElementCount"), value, count)) {
        return false;
    }
    switch (count.value_case()) {
        case Variant::kIntegerValue:
            break;
        case Variant::kStringValue:
            if (count.string_value() == "resizable") {
                return true;
            }
            if (!info.constants.Contains(count.string_value())) {
                LOG_E("expected integer or Constants name for %s.Size, got %s", path.Text().c_str(),
                      count.string_value().c_str());
                return false;
            }
            break;
        default:
            LOG_E("expected integer or constant name for %s.Size", path.Text().c_str());
            return false;
    }
    MutableElementCountOf(type) = std::move(count);
    return true;
}

bool ParseArrayType(std::string const& key, Json::Value const& value, PropertyInfo& info) {
    auto const [nameMember, label, description, elementType, count] =
        FindJsonMembers<5>(value, {"Name", "Label", "Description", "ElementType", "ElementCount"});
    JsonPath const section(key);
    std::string name;
    if (!ReadStringAt(section, nameMember, "Name", false, name)) {
        return false;
    }
    JsonPath const path(section, "[", name, "]");
    auto type = std::make_unique<vq::cfg::ArrayType>();
    type->set_name(name);
    if (!ReadStringAt(path, label, "Label", true, *type->mutable_label())) {
        return false;
    }
    if (type->label().empty()) {
        type->set_label(SynthesizeLabel(name));
    }
    if ((description != nullptr &&
         !ReadStringAt(path, description, "Description", true, *type->mutable_description())) ||
        !ReadStringAt(path, elementType, "ElementType", false, *type->mutable_element_type())) {
        return false;
    }
    if (count != nullptr && !ParseElementCount(path, *count, info, *type)) {
        return false;
    }
    if (info.arrayTypes.Add(name, std::move(type)) != nullptr) {
        LOG_E("Redefined %s %s", key.c_str(), name.c_str());
        return false;
    }
    return true;
}

/// The string member of a category; anything else is reported and counts as the empty text.
std::string ReadCategoryText(JsonPath const& path, Json::Value const& category, char const* key) {
    Json::Value const* const member = FindJsonMember(category, key);
    if (member == nullptr || !member->isString()) {
        LOG_E("%s does not have a string %s field", path.Text().c_str(), key);
        return {};
    }
    return member->asString();
}

}  // namespace

bool ParseArrayTypes(Json::Value const& root, std::string const& key, PropertyInfo& info) {
    Json::Value const* const section = FindJsonMember(root, key);
    if (section == nullptr) {
        return true;
    }
    if (!section->isArray()) {
        LOG_E("%s is not an array", key.c_str());
        return false;
    }
    return std::all_of(section->begin(), section->end(),
                       [&](Json::Value const& value) { return ParseArrayType(key, value, info); });
}

bool ParseCategories(Json::Value const& root, std::string const& key,
                     SimpleRegistry<std::string, vq::cfg::PropertyCategory>& categories) {
    Json::Value const* const section = FindJsonMember(root, key);
    if (section == nullptr) {
        return true;
    }
    if (!section->isArray()) {
        LOG_E("%s should be an array", key.c_str());
        return false;
    }
    JsonPath const path(key);
    Json::ArrayIndex index = 0;
    for (Json::Value const& value : *section) {
        JsonPath const elementPath(path, index);
        auto category = std::make_unique<vq::cfg::PropertyCategory>();
        category->set_path(ReadCategoryText(elementPath, value, "Path"));
        category->set_label(ReadCategoryText(elementPath, value, "Label"));
        std::string const categoryPath = category->path();
        categories.Add(categoryPath, std::move(category));
        ++index;
    }
    return true;
}

bool ParseTypeInfo(Json::Value const& root, PropertyInfo& info) {
    return ParseConstants(root, info) && ParseEnumerationTypes(root, info) && ParseSimpleTypes(root, info) &&
           ParseArrayTypes(root, "ArrayTypes", info) &&
           ParseCategories(root, "PropertyCategories", info.categories);
}
