#pragma once

#include "Config.pb.h"
#include "DataTypes/PropertyInfo.h"

#include <functional>
#include <initializer_list>
#include <map>
#include <string>
#include <vector>

/// The live configuration of a device: its types, declared properties, present values (settings), and those
/// who want to hear of changes. Copies are deep, handlers included.
///
/// Threads: no lock; one thread at a time. Handlers run inside the call that changes a value. They may read,
/// set values and register more handlers, but must not remove the setting that is being set.
class ConfigurationState : public PropertyInfo {
public:
    using PropertyHandler = std::function<void()>;
    using AnyPropertyHandler = std::function<void(std::string const& name)>;

    /// The setting of that name, made on demand: with the default of the declared property, or without a
    /// value when nothing declares it. Never null; owned by the state.
    vq::cfg::ConfigurationSetting* EnsureValue(std::string const& name) const;

    /// The value of the setting, made on demand. The const form gives the empty value when there is none. The
    /// other creates the value; changes through its result reach no handler and no limits.
    /// Both results end when the setting is removed or parsed anew.
    vq::cfg::Variant const& GetValue(std::string const& name) const;
    vq::cfg::Variant& GetValue(std::string const& name);

    /// Sets a value and tells the handlers, also when it is the same as before. A value of another kind
    /// replaces the old one, kind and all. Numbers are clamped to the limits of the property's simple type;
    /// a plain number takes a limit of the other number kind for 0, while a Variant skips it with an error
    /// line.
    void SetValue(std::string const& name, char const* value);
    void SetValue(std::string const& name, std::string value);
    void SetValue(std::string const& name, long long value);
    void SetValue(std::string const& name, int value);
    void SetValue(std::string const& name, unsigned int value);
    void SetValue(std::string const& name, float value);
    void SetValue(std::string const& name, bool value);
    void SetValue(std::string const& name, vq::cfg::Variant value);
    void SetValue(std::string const& name, std::vector<std::string> const& value);
    void SetValue(std::string const& name, std::vector<int> const& value);
    void SetValue(std::string const& name, std::vector<float> const& value);
    void SetValue(std::string const& name, std::vector<bool> const& value);
    void SetValue(std::string const& name, std::initializer_list<std::string> value);

    /// Adds a handler for one setting and runs it once at once, so that it starts from the present value.
    /// An empty handler throws std::bad_function_call, here and at each change.
    void RegisterPropertyChangedHandler(std::string const& name, PropertyHandler const& handler);

    /// Adds a handler that hears of every setting, by name. It doesn't run yet.
    void RegisterAnyPropertyChangedHandler(AnyPropertyHandler handler);

    /// Runs the handlers of one setting, then those for any, each in the order of their registration.
    /// Handlers registered meanwhile wait for the next event.
    void IssuePropertyChangedEvent(std::string const& name);

    /// Takes a setting out, tells the handlers, then destroys it. False when there is none.
    bool RemoveValue(std::string const& name);

    SimpleRegistry<std::string, vq::cfg::ConfigurationProperty> properties;
    /// Filled on demand by reads, so logically const.
    mutable SimpleRegistry<std::string, vq::cfg::ConfigurationSetting> settings;
    std::map<std::string, std::vector<PropertyHandler>> propertyHandlers;
    std::vector<AnyPropertyHandler> anyPropertyHandlers;

private:
    vq::cfg::SimpleType const* FindSimpleTypeOf(std::string const& name) const;
    vq::cfg::Variant& MutableValue(std::string const& name);
    template <typename List, typename Values>
    void SetList(std::string const& name, List* (vq::cfg::Variant::*field)(), Values const& values);
};
