#include "identity/ProfileCache.h"

#include <cstddef>
#include <cstdint>

#include "Identity.pb.h"
#include "Logging/Log.h"

namespace vq::IdentityShim {

namespace {

/// Attributes for which no store has to grow.
constexpr std::size_t kReservedAttributes = 50;

void LogAttribute(VQIdentityAttribute const& attribute) {
    LOG_V("%s = %s (is_requested = %d, is_granted = %d)", attribute.name, attribute.value,
          static_cast<int>(attribute.is_requested), static_cast<int>(attribute.is_granted));
}

}  // namespace

ProfileCache::ProfileCache()
    : m_profile(std::make_unique<VQIdentityProfile>()),
      m_attributes(std::make_unique<std::vector<VQIdentityAttribute*>>()) {
    m_attributes->reserve(kReservedAttributes);
    m_names.reserve(kReservedAttributes);
    m_values.reserve(kReservedAttributes);
}

ProfileCache::~ProfileCache() {
    ClearProfile();
}

void ProfileCache::FreeAttributes() {
    for (std::size_t i = 0; i < m_profile->attribute_count; ++i) {
        delete m_attributes->at(i);
    }
    m_attributes->clear();
}

void ProfileCache::ClearData() {
    FreeAttributes();
    m_names.clear();
    m_values.clear();
}

void ProfileCache::ClearProfile() {
    ClearData();
    m_profile->attribute_count = 0;
    m_profile->attribute_ptrs = nullptr;
}

void ProfileCache::PullOutProfile(sd::VQIdentityProfile const& profile) {
    ClearData();
    m_profile->attribute_count = profile.attribute_count();
    for (std::uint32_t i = 0; i < m_profile->attribute_count; ++i) {
        sd::VQIdentityAttribute const& message = profile.attributes().at(static_cast<int>(i));
        LOG_V("pushing name: %s  pushing value: %s", message.name().c_str(), message.value().c_str());
        m_names.push_back(message.name());
        m_values.push_back(message.value());
        auto attribute = std::make_unique<VQIdentityAttribute>();
        attribute->key = static_cast<VQIdentityAttributeKey>(message.key());
        attribute->name = m_names.back().c_str();
        attribute->value = m_values.back().c_str();
        attribute->is_requested = message.is_requested();
        attribute->is_granted = message.is_granted();
        m_attributes->push_back(attribute.get());
        LogAttribute(*attribute.release());
    }
    FollowMovedStores();
}

/// Points everything at where the stores are now: one that had to grow beyond its reserve has moved.
void ProfileCache::FollowMovedStores() {
    for (std::size_t i = 0; i < m_attributes->size(); ++i) {
        VQIdentityAttribute& attribute = *(*m_attributes)[i];
        attribute.name = m_names[i].c_str();
        attribute.value = m_values[i].c_str();
    }
    if (m_profile->attribute_ptrs != nullptr) {
        m_profile->attribute_ptrs = m_attributes->data();
    }
}

bool ProfileCache::FillVQProfileAttributeNames(VQIdentityProfile** out) {
    if (out == nullptr) {
        return false;
    }
    (*out)->attribute_count = static_cast<std::uint32_t>(m_attributes->size());
    (*out)->attribute_ptrs = &m_attributes->at(0);
    return true;
}

void ProfileCache::FillMessage(sd::VQIdentityProfile& message) const {
    message.set_attribute_count(m_profile->attribute_count);
    // A refresh before any names sets the count and leaves the caller's array null.
    bool const isShown = m_profile->attribute_ptrs != nullptr;
    for (std::uint32_t i = 0; i < m_profile->attribute_count; ++i) {
        VQIdentityAttribute const& attribute = isShown ? *m_profile->attribute_ptrs[i] : *m_attributes->at(i);
        sd::VQIdentityAttribute& copy = *message.add_attributes();
        copy.set_key(static_cast<sd::VQIdentityAttributeKey>(attribute.key));
        copy.set_name(attribute.name);
        copy.set_value(attribute.value);
        copy.set_is_requested(attribute.is_requested);
        copy.set_is_granted(attribute.is_granted);
    }
}

void ProfileCache::PrintAttrs() const {
    for (VQIdentityAttribute const* attribute : *m_attributes) {
        LogAttribute(*attribute);
    }
}

}  // namespace vq::IdentityShim
