#include "DataTypes/PropertyType.h"
#include "DataTypes/PropertyUtils.h"
#include "Logging/Log.h"
#include "Utils/OSUtils.h"
#include "Utils/PathText.h"

#include <cstdlib>

using vq::cfg::Variant;

namespace {

bool IsUpper(char character) {
    return character >= 'A' && character <= 'Z';
}
char Lowered(char character) {
    return static_cast<char>(character - 'A' + 'a');
}

template <typename Registry, typename List>
void CopyItems(Registry const& registry, List& out) {
    out.Clear();
    out.Reserve(static_cast<int>(registry.Size()));
    for (auto const& [name, item] : registry.Items()) {
        *out.Add() = *item;
    }
}

}  // namespace

std::string SynthesizeLabel(std::string const& name) {
    std::string label;
    bool first = true;  // no capital met yet; the first one stays, wherever it stands
    bool inRun = false;
    bool afterSeparator = false;
    for (char const character : name) {
        if (IsUpper(character)) {
            if (inRun) {
                label += character;
            } else if (first) {
                label += character;
                inRun = true;
                first = false;
            } else {
                if (!afterSeparator) {
                    label += ' ';
                }
                label += Lowered(character);
                inRun = true;
            }
            afterSeparator = false;
        } else if (character == '_' || character == '-') {
            label += ' ';
            afterSeparator = true;
            inRun = true;
        } else {
            label += character;
            inRun = false;
        }
    }
    return label;
}

bool GetTypeDefaultValue(PropertyInfo const& info, vq::cfg::CommonProperty const& property, Variant& out) {
    if (property.has_default_value()) {
        out = property.default_value();
        return true;
    }
    std::string typeName = property.type();
    if (vq::cfg::SimpleType const* const simpleType = info.simpleTypes.Find(typeName)) {
        if (simpleType->has_default_value()) {
            out = simpleType->default_value();
            return true;
        }
        typeName = simpleType->base_type();
    }
    if (vq::cfg::Enumeration const* const enumeration = info.enumerations.Find(typeName)) {
        std::string const& declared = DefaultOf(*enumeration);
        // The checked access: an enumeration without anything to choose is a fatal error of its author.
        out.set_string_value(declared.empty() ? enumeration->enumerants().at(0).name() : declared);
        return true;
    }
    return GetPropertyTypeDefaultValue(typeName, out);
}

void FillCommonPropertyInfo(PropertyInfo const& info, vq::cfg::CommonPropertyInfo& out) {
    CopyItems(info.categories, *out.mutable_categories());
    CopyItems(info.constants, *out.mutable_constants());
    CopyItems(info.simpleTypes, *out.mutable_simple_types());
    CopyItems(info.enumerations, *out.mutable_enumerations());
    CopyItems(info.arrayTypes, *out.mutable_array_types());
}

std::string ResolveRelativePathPropertyValue(std::string const& root, std::string const& value) {
    if (root == "NONE" || IsFullPath(value)) {
        return value;
    }
    if (root == "VQSDK") {
        char const* const sdk = std::getenv("VQSDK");
        return sdk != nullptr ? GetFullPath(EnsureDirectoryPath(sdk) + value) : value;
    }
    if (root == "VQ_VDS_DATA") {
        return GetFullPath(GetDataRootPath() + value);
    }
    if (root == "USER_HOME") {
        return GetFullPath(GetUserHomeDirectory() + value);
    }
    if (root == "USER_TEMP") {
        return GetFullPath(GetUserTempDirectory() + value);
    }
    LOG_W("Unhandled RelativePathRoot '%s'", root.c_str());
    return value;
}
