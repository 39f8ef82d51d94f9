#include "JsonToVariant.h"

#include "DataTypes/VariantUtils.h"
#include "Logging/Log.h"

#include <utility>
#include <vector>

using vq::cfg::Variant;

namespace {

std::int64_t IntegerOf(Json::Value const& value) {
    // asInt64 throws for unsigned values above the signed range, which wrap here.
    return value.type() == Json::intValue ? value.asInt64() : static_cast<std::int64_t>(value.asUInt64());
}

bool IsInteger(Json::Value const& value) {
    return value.type() == Json::intValue || value.type() == Json::uintValue;
}

void SetString(Json::Value const& value, Variant& out) {
    std::string_view const text = StringViewOf(value);
    out.set_string_value(text.data(), text.size());
}

bool ConvertObject(JsonPath const& path, Json::Value const& object, Variant& out) {
    auto const end = object.end();
    auto member = object.begin();
    if (member == end) {
        return true;  // leaves `out` as it is; an empty object makes no empty map
    }
    auto& entries = *out.mutable_named_map()->mutable_entries();
    entries.Reserve(entries.size() + static_cast<int>(object.size()));
    for (; member != end; ++member) {
        std::string_view const name = MemberNameOf(member);
        vq::cfg::NamedMapFieldEntry& entry = *entries.Add();
        entry.set_name(name.data(), name.size());
        if (!ConvertJsonAt(JsonPath(path, ".", name), *member, *entry.mutable_value())) {
            entries.RemoveLast();
            return false;
        }
    }
    return true;
}

/// Fills a list from an array whose elements all pass the test; false at the first that doesn't.
template <typename List, typename Test, typename Read>
bool FillList(Json::Value const& array, List& list, Test test, Read read) {
    list.Clear();
    list.mutable_values()->Reserve(static_cast<int>(array.size()));
    auto const end = array.end();
    for (auto element = array.begin(); element != end; ++element) {
        Json::Value const& value = *element;
        if (!test(value)) {
            return false;
        }
        list.add_values(read(value));
    }
    return true;
}

bool FillStrings(Json::Value const& array, vq::cfg::StringList& list) {
    list.Clear();
    list.mutable_values()->Reserve(static_cast<int>(array.size()));
    auto const end = array.end();
    for (auto element = array.begin(); element != end; ++element) {
        Json::Value const& value = *element;
        if (!value.isString()) {
            return false;
        }
        std::string_view const text = StringViewOf(value);
        list.add_values(text.data(), text.size());
    }
    return true;
}

bool IsNumber(Json::Value const& value) {
    return IsInteger(value) || value.type() == Json::realValue;
}

float FloatOf(Json::Value const& value) {
    return IsInteger(value) ? static_cast<float>(IntegerOf(value)) : value.asFloat();
}

/// Converts an array of scalars of one kind, as nearly all arrays are, without temporaries. False for any
/// other; `out` is then partly built.
bool ConvertScalars(Json::Value const& array, Variant& out) {
    switch ((*array.begin()).type()) {
        case Json::intValue:
        case Json::uintValue:
            return FillList(array, *out.mutable_integer_list(), IsInteger, IntegerOf) ||
                   FillList(array, *out.mutable_float_list(), IsNumber, FloatOf);
        case Json::realValue:
            return FillList(array, *out.mutable_float_list(), IsNumber, FloatOf);
        case Json::stringValue:
            return FillStrings(array, *out.mutable_string_list());
        case Json::booleanValue:
            return FillList(
                array, *out.mutable_boolean_list(), [](Json::Value const& value) { return value.isBool(); },
                [](Json::Value const& value) { return value.asBool(); });
        default:
            return false;
    }
}

/// The case that all elements share, floats swallowing integers; false when they share none.
bool FindCommonCase(std::vector<Variant> const& elements, Variant::ValueCase& common) {
    common = elements.front().value_case();
    for (Variant const& element : elements) {
        Variant::ValueCase const next = element.value_case();
        bool const numbers = (common == Variant::kIntegerValue && next == Variant::kFloatValue) ||
                             (common == Variant::kFloatValue && next == Variant::kIntegerValue);
        if (numbers) {
            common = Variant::kFloatValue;
        } else if (next != common) {
            return false;
        }
    }
    return true;
}

/// Converts an array that isn't one of scalars of a kind: one of objects, or one that is refused. All
/// elements are converted before they are compared, so that the first message is about a bad element.
bool ConvertElements(JsonPath const& path, Json::Value const& array, Variant& out) {
    std::vector<Variant> elements(array.size());
    Json::ArrayIndex index = 0;
    for (Json::Value const& value : array) {
        if (!ConvertJsonAt(JsonPath(path, index), value, elements[index])) {
            return false;
        }
        ++index;
    }
    Variant::ValueCase common = Variant::VALUE_NOT_SET;
    if (!FindCommonCase(elements, common)) {
        LOG_E("Array in %s must have homogenous elements", path.Text().c_str());
        return false;
    }
    switch (common) {
        case Variant::kNamedMap: {
            auto& maps = *out.mutable_named_map_list()->mutable_maps();
            maps.Clear();
            maps.Reserve(static_cast<int>(elements.size()));
            for (Variant& element : elements) {
                *maps.Add() = std::move(*element.mutable_named_map());
            }
            return true;
        }
        case Variant::kStringList:
        case Variant::kIntegerList:
        case Variant::kFloatList:
        case Variant::kBooleanList:
            LOG_E("Array in %s must consist of scalar elements (not lists)", path.Text().c_str());
            return false;
        default:
            LOG_E("Unexpected value in %s", path.Text().c_str());
            return false;
    }
}

bool ConvertArray(JsonPath const& path, Json::Value const& array, Variant& out) {
    if (array.empty()) {
        out.mutable_string_list()->Clear();
        return true;
    }
    return ConvertScalars(array, out) || ConvertElements(path, array, out);
}

}  // namespace

bool ConvertJsonAt(JsonPath const& path, Json::Value const& value, Variant& out) {
    switch (value.type()) {
        case Json::nullValue:
            LOG_E("%s cannot contain null value", path.Text().c_str());
            return false;
        case Json::intValue:
        case Json::uintValue:
            out.set_integer_value(IntegerOf(value));
            return true;
        case Json::realValue:
            out.set_float_value(value.asFloat());
            return true;
        case Json::stringValue:
            SetString(value, out);
            return true;
        case Json::booleanValue:
            out.set_boolean_value(value.asBool());
            return true;
        case Json::arrayValue:
            return ConvertArray(path, value, out);
        case Json::objectValue:
            return ConvertObject(path, value, out);
    }
    return false;
}

bool ConvertJsonToVariant(std::string const& name, Json::Value const& value, Variant& out) {
    return ConvertJsonAt(JsonPath(name), value, out);
}
