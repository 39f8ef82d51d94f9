#include "Utils/JsonFields.h"

#include "Logging/Log.h"
#include "Utils/JsonUtils.h"

#include <limits>
#include <locale>
#include <sstream>

namespace {

/// Parses as far as the text is a number; false when it doesn't begin with one, or with one out of range.
template <typename Number>
bool ParseNumber(Json::Value const& value, Number& out) {
    std::istringstream stream(value.asString());
    stream.imbue(std::locale::classic());
    stream >> out;
    if (stream.fail()) {
        out = 0;
        return false;
    }
    return true;
}

bool ConvertRealToInt(double real, std::string const& name, int& out) {
    // Compared as doubles, which hold both limits exactly: a real outside them must not be cast.
    bool const inRange = real >= std::numeric_limits<int>::min() && real <= std::numeric_limits<int>::max();
    int const truncated = inRange ? static_cast<int>(real) : 0;
    if (!inRange || static_cast<double>(truncated) != real) {
        LOG_E("%s field contains a double instead of an int, value will not convert without truncation",
              name.c_str());
        return false;
    }
    LOG_W("%s field contains a double instead of an int but value converts without truncation", name.c_str());
    out = truncated;
    return true;
}

/// The error line that the Get forms add to a failed Try form.
bool ReportMissing(bool found, std::string const& name) {
    if (!found) {
        LOG_E("%s field does not exist", name.c_str());
    }
    return found;
}

}  // namespace

bool TryGetIntField(Json::Value const& value, std::string const& name, int& out) {
    out = 0;
    // By type(), since isInt() is also true for a real without fraction.
    switch (value.type()) {
        case Json::nullValue:
            return false;
        case Json::intValue:
        case Json::uintValue:
            if (value.isInt()) {
                out = value.asInt();
                return true;
            }
            break;
        case Json::realValue:
            return ConvertRealToInt(value.asDouble(), name, out);
        case Json::stringValue:
            if (!ParseNumber(value, out)) {
                LOG_E("%s field string does not contain an int", name.c_str());
                return false;
            }
            return true;
        default:
            break;
    }
    LOG_E("%s field is not an int", name.c_str());
    return false;
}

bool GetIntField(Json::Value const& value, std::string const& name, int& out) {
    return ReportMissing(TryGetIntField(value, name, out), name);
}

int GetIntFieldWithDefault(Json::Value const& value, std::string const& name, int fallback) {
    int result = 0;
    return TryGetIntField(value, name, result) ? result : fallback;
}

bool TryGetDoubleField(Json::Value const& value, std::string const& name, double& out) {
    out = 0;
    switch (value.type()) {
        case Json::nullValue:
            return false;
        case Json::intValue:
        case Json::uintValue:
        case Json::realValue:
            out = value.asDouble();
            return true;
        case Json::stringValue:
            if (!ParseNumber(value, out)) {
                LOG_E("%s field string does not contain a double", name.c_str());
                return false;
            }
            return true;
        default:
            LOG_E("%s field is not a double", name.c_str());
            return false;
    }
}

bool GetDoubleField(Json::Value const& value, std::string const& name, double& out) {
    return ReportMissing(TryGetDoubleField(value, name, out), name);
}

double GetDoubleFieldWithDefault(Json::Value const& value, std::string const& name, double fallback) {
    double result = 0;
    return TryGetDoubleField(value, name, result) ? result : fallback;
}

bool TryGetBoolField(Json::Value const& value, std::string const& /*name*/, bool& out) {
    out = value.isBool() && value.asBool();
    return value.isBool();
}

bool GetBoolField(Json::Value const& value, std::string const& name, bool& out) {
    return ReportMissing(TryGetBoolField(value, name, out), name);
}

bool GetBoolFieldWithDefault(Json::Value const& value, std::string const& name, bool fallback) {
    bool result = false;
    return TryGetBoolField(value, name, result) ? result : fallback;
}

bool TryGetStringField(std::string const& name, Json::Value const& value, std::string& out) {
    if (!value.isString()) {
        LOG_E("expected string for %s field", name.c_str());
        out.clear();
        return false;
    }
    out = value.asString();
    return true;
}

bool TryGetStringField(std::string const& path, Json::Value const& object, std::string const& key,
                       std::string& out, bool optional, std::string const& fallback) {
    out = fallback;
    Json::Value const* const member = FindJsonMember(object, key);
    if (member == nullptr && optional) {
        return true;
    }
    if (member == nullptr || !member->isString()) {
        LOG_E("expected string for %s.%s field", path.c_str(), key.c_str());
        return false;
    }
    out = member->asString();
    return true;
}
