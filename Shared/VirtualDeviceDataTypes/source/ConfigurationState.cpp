#include "DataTypes/ConfigurationState.h"

#include "DataTypes/PropertyUtils.h"
#include "Logging/Log.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <utility>

using vq::cfg::ConfigurationSetting;
using vq::cfg::Variant;

// Sorting and growing vectors of devices relies on it.
static_assert(std::is_nothrow_move_constructible_v<ConfigurationState>);
static_assert(std::is_nothrow_move_assignable_v<ConfigurationState>);

namespace {

/// Clamps a number to the limits that a type declares.
/// @param read  gives a limit as a number.
template <typename Number, typename Read>
Number Clamp(Number value, vq::cfg::SimpleType const* type, Read read) {
    if (type != nullptr && type->has_lower_limit()) {
        value = std::max(value, read(type->lower_limit()));
    }
    if (type != nullptr && type->has_upper_limit()) {
        value = std::min(value, read(type->upper_limit()));
    }
    return value;
}

/// True when the limit can be compared with the value; reports a limit of another kind.
bool IsLimitUsable(bool isPresent, Variant const& limit, Variant const& value, char const* which,
                   std::string const& name) {
    if (!isPresent) {
        return false;
    }
    bool const isNumber =
        value.value_case() == Variant::kIntegerValue || value.value_case() == Variant::kFloatValue;
    if (isNumber && limit.value_case() == value.value_case()) {
        return true;
    }
    LOG_E("%s limit type does not match property type for setting %s", which, name.c_str());
    return false;
}

void ClampToLimits(std::string const& name, vq::cfg::SimpleType const& type, Variant& value) {
    if (IsLimitUsable(type.has_lower_limit(), type.lower_limit(), value, "Lower", name)) {
        if (value.value_case() == Variant::kIntegerValue) {
            value.set_integer_value(std::max(value.integer_value(), type.lower_limit().integer_value()));
        } else {
            value.set_float_value(std::max(value.float_value(), type.lower_limit().float_value()));
        }
    }
    if (IsLimitUsable(type.has_upper_limit(), type.upper_limit(), value, "Upper", name)) {
        if (value.value_case() == Variant::kIntegerValue) {
            value.set_integer_value(std::min(value.integer_value(), type.upper_limit().integer_value()));
        } else {
            value.set_float_value(std::min(value.float_value(), type.upper_limit().float_value()));
        }
    }
}

}  // namespace

ConfigurationSetting* ConfigurationState::EnsureValue(std::string const& name) const {
    if (ConfigurationSetting* const existing = settings.Find(name)) {
        return existing;
    }
    auto owned = std::make_unique<ConfigurationSetting>();
    ConfigurationSetting* const setting = owned.get();
    setting->set_name(name);
    settings.Add(name, std::move(owned));
    if (vq::cfg::ConfigurationProperty const* const property = properties.Find(name)) {
        Variant value;
        if (GetTypeDefaultValue(*this, property->common(), value)) {
            *setting->mutable_value() = std::move(value);
        }
    } else {
        LOG_PLAIN_V("Configuration setting %s does not exist, creating empty setting", name.c_str());
    }
    return setting;
}

Variant const& ConfigurationState::GetValue(std::string const& name) const {
    return EnsureValue(name)->value();
}

Variant& ConfigurationState::GetValue(std::string const& name) {
    return MutableValue(name);
}

Variant& ConfigurationState::MutableValue(std::string const& name) {
    return *EnsureValue(name)->mutable_value();
}

vq::cfg::SimpleType const* ConfigurationState::FindSimpleTypeOf(std::string const& name) const {
    vq::cfg::ConfigurationProperty const* const property = properties.Find(name);
    return property != nullptr ? simpleTypes.Find(property->common().type()) : nullptr;
}

void ConfigurationState::SetValue(std::string const& name, char const* value) {
    SetValue(name, std::string(value));
}

void ConfigurationState::SetValue(std::string const& name, std::string value) {
    MutableValue(name).set_string_value(std::move(value));
    IssuePropertyChangedEvent(name);
}

void ConfigurationState::SetValue(std::string const& name, long long value) {
    // A limit of another kind reads as 0.
    std::int64_t const clamped = Clamp<std::int64_t>(
        value, FindSimpleTypeOf(name), [](Variant const& limit) { return limit.integer_value(); });
    MutableValue(name).set_integer_value(clamped);
    IssuePropertyChangedEvent(name);
}

void ConfigurationState::SetValue(std::string const& name, int value) {
    SetValue(name, static_cast<long long>(value));
}

void ConfigurationState::SetValue(std::string const& name, unsigned int value) {
    SetValue(name, static_cast<long long>(value));
}

void ConfigurationState::SetValue(std::string const& name, float value) {
    float const clamped =
        Clamp(value, FindSimpleTypeOf(name), [](Variant const& limit) { return limit.float_value(); });
    MutableValue(name).set_float_value(clamped);
    IssuePropertyChangedEvent(name);
}

void ConfigurationState::SetValue(std::string const& name, bool value) {
    MutableValue(name).set_boolean_value(value);
    IssuePropertyChangedEvent(name);
}

void ConfigurationState::SetValue(std::string const& name, Variant value) {
    if (vq::cfg::SimpleType const* const type = FindSimpleTypeOf(name)) {
        ClampToLimits(name, *type, value);
    }
    MutableValue(name) = std::move(value);
    IssuePropertyChangedEvent(name);
}

template <typename List, typename Values>
void ConfigurationState::SetList(std::string const& name, List* (Variant::*field)(), Values const& values) {
    List& list = *(MutableValue(name).*field)();
    list.Clear();
    list.mutable_values()->Reserve(static_cast<int>(values.size()));
    for (auto const& value : values) {
        *list.mutable_values()->Add() = value;
    }
    IssuePropertyChangedEvent(name);
}

void ConfigurationState::SetValue(std::string const& name, std::vector<std::string> const& value) {
    SetList(name, &Variant::mutable_string_list, value);
}

void ConfigurationState::SetValue(std::string const& name, std::vector<int> const& value) {
    SetList(name, &Variant::mutable_integer_list, value);
}

void ConfigurationState::SetValue(std::string const& name, std::vector<float> const& value) {
    SetList(name, &Variant::mutable_float_list, value);
}

void ConfigurationState::SetValue(std::string const& name, std::vector<bool> const& value) {
    SetList(name, &Variant::mutable_boolean_list, value);
}

void ConfigurationState::SetValue(std::string const& name, std::initializer_list<std::string> value) {
    SetList(name, &Variant::mutable_string_list, value);
}

void ConfigurationState::RegisterPropertyChangedHandler(std::string const& name,
                                                        PropertyHandler const& handler) {
    propertyHandlers[name].push_back(handler);
    handler();
}

void ConfigurationState::RegisterAnyPropertyChangedHandler(AnyPropertyHandler handler) {
    anyPropertyHandlers.push_back(std::move(handler));
}

void ConfigurationState::IssuePropertyChangedEvent(std::string const& name) {
    // Copies, so that a handler may register more.
    auto const found = propertyHandlers.find(name);
    if (found != propertyHandlers.end()) {
        std::vector<PropertyHandler> const handlers = found->second;
        for (PropertyHandler const& handler : handlers) {
            handler();
        }
    }
    std::vector<AnyPropertyHandler> const anyHandlers = anyPropertyHandlers;
    for (AnyPropertyHandler const& handler : anyHandlers) {
        handler(name);
    }
}

bool ConfigurationState::RemoveValue(std::string const& name) {
    // Destroyed behind the event, since `name` may be the setting's own.
    std::unique_ptr<ConfigurationSetting> const removed = settings.Take(name);
    if (removed == nullptr) {
        return false;
    }
    IssuePropertyChangedEvent(name);
    return true;
}
