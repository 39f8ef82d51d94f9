#include "IdentityProfile.h"

#include <algorithm>

#include "Logging/Log.h"

namespace vq::mock {

namespace {

constexpr std::int32_t kNotLoggedIn = 0x7D4D0004;

vq::cfg::Variant const* Find(vq::cfg::NamedMap const& map, char const* name) {
    for (auto const& entry : map.entries()) {
        if (entry.name() == name) {
            return &entry.value();
        }
    }
    return nullptr;
}

std::string TextOf(vq::cfg::NamedMap const& map, char const* name) {
    vq::cfg::Variant const* value = Find(map, name);
    return value != nullptr ? value->string_value() : std::string();
}

void AppendAttribute(vq::cfg::NamedMap const& map, std::vector<StoredAttribute>& profile) {
    vq::cfg::Variant const* key = Find(map, "Key");
    bool const isKey = key != nullptr && key->value_case() == vq::cfg::Variant::kIntegerValue &&
                       key->integer_value() >= 0 && key->integer_value() <= 7;
    if (!isKey) {
        LOG_E("Profile attribute '%s' has no Key from 0 to 7, ignoring it", TextOf(map, "Name").c_str());
        return;
    }
    vq::cfg::Variant const* granted = Find(map, "Granted");
    profile.push_back({static_cast<vq::sd::VQIdentityAttributeKey>(key->integer_value()), TextOf(map, "Name"),
                       TextOf(map, "Value"), granted == nullptr || granted->boolean_value()});
}

vq::sd::VQIdentityAttribute& Append(vq::sd::VQIdentityProfile& profile, StoredAttribute const& stored) {
    vq::sd::VQIdentityAttribute& attribute = *profile.add_attributes();
    attribute.set_key(stored.key);
    attribute.set_name(stored.name);
    attribute.set_value("");
    attribute.set_is_requested(false);
    attribute.set_is_granted(false);
    return attribute;
}

void FinishCount(vq::sd::VQIdentityProfile& profile) {
    profile.set_attribute_count(static_cast<std::uint32_t>(profile.attributes_size()));
}

}  // namespace

IdentitySettings IdentitySettings::FromConfiguration(ConfigurationState const& state) {
    IdentitySettings settings;
    for (vq::cfg::NamedMap const& map : state.GetValue("Profile").named_map_list().maps()) {
        AppendAttribute(map, settings.profile);
    }
    settings.result = static_cast<std::int32_t>(state.GetValue("Result").integer_value());
    vq::cfg::Variant const& loggedIn = state.GetValue("LoggedIn");
    if (loggedIn.value_case() == vq::cfg::Variant::kBooleanValue && !loggedIn.boolean_value()) {
        settings.result = kNotLoggedIn;
    }
    std::int64_t const delay = state.GetValue("DelayMs").integer_value();
    settings.delayMs = static_cast<std::uint32_t>(std::clamp<std::int64_t>(delay, 0, 600000));
    return settings;
}

vq::sd::VQIdentityProfile NamesOf(IdentitySettings const& settings, std::vector<int> const* keys) {
    vq::sd::VQIdentityProfile profile;
    for (StoredAttribute const& stored : settings.profile) {
        if (keys == nullptr || std::find(keys->begin(), keys->end(), stored.key) != keys->end()) {
            Append(profile, stored);
        }
    }
    FinishCount(profile);
    return profile;
}

vq::sd::VQIdentityProfile ValuesOf(IdentitySettings const& settings,
                                   vq::sd::VQIdentityProfile const& request) {
    vq::sd::VQIdentityProfile profile;
    for (vq::sd::VQIdentityAttribute const& asked : request.attributes()) {
        auto const stored =
            std::find_if(settings.profile.begin(), settings.profile.end(),
                         [&](StoredAttribute const& each) { return each.key == asked.key(); });
        if (stored == settings.profile.end()) {
            *profile.add_attributes() = asked;
            profile.mutable_attributes(profile.attributes_size() - 1)->set_is_granted(false);
            continue;
        }
        vq::sd::VQIdentityAttribute& attribute = Append(profile, *stored);
        attribute.set_is_requested(asked.is_requested());
        if (asked.is_requested() && stored->granted) {
            attribute.set_value(stored->value);
            attribute.set_is_granted(true);
        }
    }
    FinishCount(profile);
    return profile;
}

}  // namespace vq::mock
