#include "JsonToVariant.h"

#include "DataTypes/VariantUtils.h"
#include "Logging/Log.h"
#include "Utils/JsonUtils.h"

#include <utility>
#include <vector>

using vq::cfg::Variant;

namespace {

std::int64_t IntegerOf(Json::Value const& value, Json::ValueType type) {
    // asInt64 throws for unsigned values above the signed range, which wrap here.
    return type == Json::intValue ? value.asInt64() : static_cast<std::int64_t>(value.asUInt64());
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

/// The elements of an array, asked for once.
struct Elements {
    explicit Elements(Json::Value const& array)
        : begin(array.begin()), end(array.end()), count(array.size()) {}

    Json::Value::const_iterator const begin;
    Json::Value::const_iterator const end;
    Json::ArrayIndex const count;  // no less than there are
};

/// Fills a list in one walk; false at the first element that `read` refuses.
/// @param read  takes an element and its type, and stores it in the slot; the type is asked for only once.
template <typename Read>
bool FillList(Elements const& elements, vq::cfg::StringList& list, Read read) {
    auto& values = *list.mutable_values();
    values.Clear();
    values.Reserve(static_cast<int>(elements.count));
    for (auto element = elements.begin; element != elements.end; ++element) {
        Json::Value const& value = *element;
        if (!read(value, value.type(), *values.Add())) {
            return false;
        }
    }
    return true;
}

/// The same for the lists of numbers and bools, whose slots lie side by side.
template <typename List, typename Read>
bool FillList(Elements const& elements, List& list, Read read) {
    auto& values = *list.mutable_values();
    values.Clear();
    values.Reserve(static_cast<int>(elements.count));
    auto* const first = values.AddNAlreadyReserved(static_cast<int>(elements.count));
    auto* slot = first;
    for (auto element = elements.begin; element != elements.end; ++element, ++slot) {
        Json::Value const& value = *element;
        if (!read(value, value.type(), *slot)) {
            return false;
        }
    }
    values.Truncate(static_cast<int>(slot - first));
    return true;
}

bool ReadInteger(Json::Value const& value, Json::ValueType type, std::int64_t& slot) {
    if (type != Json::intValue && type != Json::uintValue) {
        return false;
    }
    slot = IntegerOf(value, type);
    return true;
}

bool ReadFloat(Json::Value const& value, Json::ValueType type, float& slot) {
    if (type == Json::realValue) {
        slot = value.asFloat();
        return true;
    }
    std::int64_t integer = 0;
    if (!ReadInteger(value, type, integer)) {
        return false;
    }
    slot = static_cast<float>(integer);
    return true;
}

bool ReadString(Json::Value const& value, Json::ValueType type, std::string& slot) {
    if (type != Json::stringValue) {
        return false;
    }
    slot = StringViewOf(value);
    return true;
}

bool ReadBool(Json::Value const& value, Json::ValueType type, bool& slot) {
    slot = type == Json::booleanValue && value.asBool();
    return type == Json::booleanValue;
}

/// Converts an array of scalars of one kind, as nearly all arrays are, without temporaries. False for any
/// other; `out` is then partly built.
bool ConvertScalars(Elements const& elements, Variant& out) {
    switch ((*elements.begin).type()) {
        case Json::intValue:
        case Json::uintValue:
            return FillList(elements, *out.mutable_integer_list(), ReadInteger) ||
                   FillList(elements, *out.mutable_float_list(), ReadFloat);
        case Json::realValue:
            return FillList(elements, *out.mutable_float_list(), ReadFloat);
        case Json::stringValue:
            return FillList(elements, *out.mutable_string_list(), ReadString);
        case Json::booleanValue:
            return FillList(elements, *out.mutable_boolean_list(), ReadBool);
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
    Elements const elements(array);
    if (elements.begin == elements.end) {
        out.mutable_string_list()->Clear();
        return true;
    }
    return ConvertScalars(elements, out) || ConvertElements(path, array, out);
}

}  // namespace

bool ConvertJsonAt(JsonPath const& path, Json::Value const& value, Variant& out) {
    Json::ValueType const type = value.type();
    switch (type) {
        case Json::nullValue:
            LOG_E("%s cannot contain null value", path.Text().c_str());
            return false;
        case Json::intValue:
        case Json::uintValue:
            out.set_integer_value(IntegerOf(value, type));
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
