#include "DataTypes/VariantUtils.h"

#include "Logging/Log.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <locale>
#include <sstream>

using vq::cfg::NamedMap;
using vq::cfg::Variant;

namespace {

template <typename List>
void AppendElements(List const& list, Json::Value& out) {
    out = Json::Value(Json::arrayValue);
    for (auto const& element : list.values()) {
        out.append(element);
    }
}

/// JSON's text has no infinity, and a reader refuses null: a document with them could be written, never read.
double JsonReal(float value) {
    constexpr float most = std::numeric_limits<float>::max();
    return std::isnan(value) ? 0.0 : static_cast<double>(std::clamp(value, -most, most));
}

void AppendReals(vq::cfg::FloatList const& list, Json::Value& out) {
    out = Json::Value(Json::arrayValue);
    for (float const element : list.values()) {
        out.append(JsonReal(element));
    }
}

void AppendIntegers(vq::cfg::IntList const& list, Json::Value& out) {
    out = Json::Value(Json::arrayValue);
    for (std::int64_t const element : list.values()) {
        out.append(Json::Int64{element});
    }
}

bool ConvertMapListToJson(vq::cfg::NamedMapList const& list, Json::Value& out) {
    out = Json::Value(Json::arrayValue);
    for (NamedMap const& map : list.maps()) {
        Json::Value element;
        if (!ConvertNamedMapToJson(map, element)) {
            return false;
        }
        out.append(std::move(element));
    }
    return true;
}

void WriteVariant(std::ostream& out, Variant const& value, bool quoteStrings);

/// Writes the items with ", " between them.
template <typename Items, typename WriteItem>
void WriteJoined(std::ostream& out, Items const& items, WriteItem writeItem) {
    bool first = true;
    for (auto const& item : items) {
        if (!first) {
            out << ", ";
        }
        first = false;
        writeItem(item);
    }
}

template <typename List>
void WriteList(std::ostream& out, List const& list) {
    out << '[';
    WriteJoined(out, list.values(), [&out](auto const& element) { out << element; });
    out << ']';
}

void WriteBoolList(std::ostream& out, vq::cfg::BoolList const& list) {
    out << '[';
    WriteJoined(out, list.values(), [&out](bool element) { out << (element ? "true" : "false"); });
    out << ']';
}

void WriteVariant(std::ostream& out, Variant const& value, bool quoteStrings) {
    switch (value.value_case()) {
        case Variant::VALUE_NOT_SET:
            out << "(not set)";
            return;
        case Variant::kStringValue:
            if (quoteStrings) {
                out << '"' << value.string_value() << '"';
            } else {
                out << value.string_value();
            }
            return;
        case Variant::kIntegerValue:
            out << value.integer_value();
            return;
        case Variant::kFloatValue:
            out << value.float_value();
            return;
        case Variant::kBooleanValue:
            out << (value.boolean_value() ? "true" : "false");
            return;
        case Variant::kStringList:
            return WriteList(out, value.string_list());
        case Variant::kIntegerList:
            return WriteList(out, value.integer_list());
        case Variant::kFloatList:
            return WriteList(out, value.float_list());
        case Variant::kBooleanList:
            return WriteBoolList(out, value.boolean_list());
        case Variant::kNamedMap:
            return ConvertNamedMapToString(out, value.named_map());
        case Variant::kNamedMapList:
            out << '[';
            WriteJoined(out, value.named_map_list().maps(),
                        [&out](NamedMap const& map) { ConvertNamedMapToString(out, map); });
            out << ']';
            return;
    }
    out << "(unsupported setting data type " << static_cast<int>(value.value_case()) << ')';
}

}  // namespace

bool ConvertVariantToJson(Variant const& value, Json::Value& out) {
    switch (value.value_case()) {
        case Variant::kStringValue:
            out = value.string_value();
            return true;
        case Variant::kIntegerValue:
            out = Json::Int64{value.integer_value()};
            return true;
        case Variant::kFloatValue:
            out = JsonReal(value.float_value());
            return true;
        case Variant::kBooleanValue:
            out = value.boolean_value();
            return true;
        case Variant::kStringList:
            AppendElements(value.string_list(), out);
            return true;
        case Variant::kIntegerList:
            AppendIntegers(value.integer_list(), out);
            return true;
        case Variant::kFloatList:
            AppendReals(value.float_list(), out);
            return true;
        case Variant::kBooleanList:
            AppendElements(value.boolean_list(), out);
            return true;
        case Variant::kNamedMap:
            return ConvertNamedMapToJson(value.named_map(), out);
        case Variant::kNamedMapList:
            return ConvertMapListToJson(value.named_map_list(), out);
        default:
            LOG_E("Unexpected variant type %d not processed", static_cast<int>(value.value_case()));
            return false;
    }
}

bool ConvertNamedMapToJson(NamedMap const& map, Json::Value& out) {
    out = Json::Value(Json::objectValue);
    for (vq::cfg::NamedMapFieldEntry const& entry : map.entries()) {
        if (!ConvertVariantToJson(entry.value(), out[entry.name()])) {
            return false;
        }
    }
    return true;
}

std::string ConvertVariantToString(Variant const& value, bool quoteStrings) {
    std::ostringstream out;
    out.imbue(std::locale::classic());  // the program around us may have set another one
    WriteVariant(out, value, quoteStrings);
    return out.str();
}

void ConvertNamedMapToString(std::ostream& out, NamedMap const& map) {
    out << '{';
    WriteJoined(out, map.entries(), [&out](vq::cfg::NamedMapFieldEntry const& entry) {
        out << '"' << entry.name() << "\": ";
        WriteVariant(out, entry.value(), true);
    });
    out << '}';
}

std::string ConvertVariantValueCaseToString(Variant::ValueCase valueCase) {
    switch (valueCase) {
        case Variant::kStringValue:
            return "string";
        case Variant::kIntegerValue:
            return "integer";
        case Variant::kFloatValue:
            return "float";
        case Variant::kBooleanValue:
            return "boolean";
        case Variant::kStringList:
            return "stringList";
        case Variant::kIntegerList:
            return "integerList";
        case Variant::kFloatList:
            return "floatList";
        case Variant::kBooleanList:
            return "booleanList";
        case Variant::kNamedMap:
            return "namedMap";
        case Variant::kNamedMapList:
            return "namedMapList";
        default:
            return {};
    }
}

float GetVariantFloat(std::string const& name, Variant const& value, float fallback) {
    switch (value.value_case()) {
        case Variant::kFloatValue:
            return value.float_value();
        case Variant::kIntegerValue:
            return static_cast<float>(value.integer_value());
        default:
            LOG_W("Expected float or integer for '%s', got type %d", name.c_str(),
                  static_cast<int>(value.value_case()));
            return fallback;
    }
}

bool HasEmptyList(Variant const& value) {
    switch (value.value_case()) {
        case Variant::kStringList:
            return value.string_list().values().empty();
        case Variant::kIntegerList:
            return value.integer_list().values().empty();
        case Variant::kFloatList:
            return value.float_list().values().empty();
        case Variant::kBooleanList:
            return value.boolean_list().values().empty();
        case Variant::kNamedMapList:
            return value.named_map_list().maps().empty();
        default:
            return false;
    }
}
