// Values of any kind brought to any type of the property language.
//
// The input is the name of a type up to a line feed, and the value: JSON, or else a text as typed.

#include "DataTypes/PropertyUtils.h"
#include "DataTypes/VariantUtils.h"
#include "FuzzTarget.h"
#include "QuietLog.h"
#include "Utils/JsonUtils.h"

namespace {

PropertyInfo const& Types() {
    static PropertyInfo const types = [] {
        Json::Value root;
        std::string errors;
        FUZZ_CHECK(ParseJson(R"({
            "Constants": {"Three": 3},
            "EnumerationTypes": {"Color": {"Values": ["Red", "Green"], "Default": "Green"}},
            "SimpleTypes": [{"Name": "Percent", "BaseType": "integer", "LowerLimit": 0, "UpperLimit": 100}],
            "ArrayTypes": [{"Name": "Triple", "ElementType": "float", "ElementCount": "Three"}]})",
                             root, errors));
        PropertyInfo info;
        FUZZ_CHECK(ParseTypeInfo(root, info));
        return info;
    }();
    return types;
}

}  // namespace

void TryInput(std::string_view input) {
    KeepLogQuiet();
    std::size_t const end = input.find('\n');
    if (end == std::string_view::npos) {
        return;
    }
    std::string const type(input.substr(0, end));
    std::string const text(input.substr(end + 1));
    Json::Value json;
    std::string errors;
    vq::cfg::Variant value;
    if (!ParseJson(text, json, errors) || !ConvertJsonToVariant("value", json, value)) {
        value.Clear();
        value.set_string_value(text);
    }
    bool const isText = value.value_case() == vq::cfg::Variant::kStringValue;
    if (!TryCoerceVariantToType(value, type, Types())) {
        return;
    }
    // A value that fits needs no more; what a text turns into is looked at by nobody.
    std::string const once = value.SerializeAsString();
    FUZZ_CHECK(isText || (TryCoerceVariantToType(value, type, Types()) && value.SerializeAsString() == once));
    ConvertVariantToString(value, true);
    ConvertVariantToJson(value, json);
}
