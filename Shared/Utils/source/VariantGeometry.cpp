#include <glm/gtc/quaternion.hpp>

#include "Logging/Log.h"
#include "Utils/ProtoUtils.h"

namespace {

using vq::cfg::Variant;

constexpr float kRadiansOfDegree = 0.017453292f;

/// Both kinds of number lists behind one face.
class Numbers {
public:
    explicit Numbers(Variant const& value) : m_value(value) {}

    /// 0 for a value that is no list of numbers.
    int Size() const {
        switch (m_value.value_case()) {
            case Variant::kIntegerList:
                return m_value.integer_list().values_size();
            case Variant::kFloatList:
                return m_value.float_list().values_size();
            default:
                return 0;
        }
    }
    float operator[](int index) const {
        return m_value.value_case() == Variant::kIntegerList
                   ? static_cast<float>(m_value.integer_list().values(index))
                   : m_value.float_list().values(index);
    }
    glm::vec3 FirstThree() const { return {(*this)[0], (*this)[1], (*this)[2]}; }

private:
    Variant const& m_value;
};

/// @return false when the value is no single number.
bool GetNumber(Variant const& value, float& number) {
    switch (value.value_case()) {
        case Variant::kIntegerValue:
            number = static_cast<float>(value.integer_value());
            return true;
        case Variant::kFloatValue:
            number = value.float_value();
            return true;
        default:
            return false;
    }
}

}  // namespace

void ProtoUtils::ConvertTo(Variant const& from, glm::vec3* to) {
    ProtoUtilsDetail::CheckOutput(to);
    float number = 0;
    if (GetNumber(from, number)) {
        *to = glm::vec3(number);
    } else if (Numbers const list(from); list.Size() >= 3) {
        *to = list.FirstThree();
    } else {
        LOG_W("no matching vector 3 definition in configuration setting message");
    }
}

void ProtoUtils::ConvertTo(Variant const& from, glm::vec4* to) {
    ProtoUtilsDetail::CheckOutput(to);
    float number = 0;
    if (GetNumber(from, number)) {
        *to = glm::vec4(number);
    } else if (Numbers const list(from); list.Size() >= 3) {
        *to = glm::vec4(list.FirstThree(), list.Size() > 3 ? list[3] : 1.0f);
    } else {
        LOG_W("no matching vector 3 or 4 definition in configuration setting message");
    }
}

void ProtoUtils::ConvertTo(Variant const& from, glm::quat* to) {
    ProtoUtilsDetail::CheckOutput(to);
    Numbers const list(from);
    if (list.Size() == 4) {
        *to = glm::quat(list[0], list[1], list[2], list[3]);
    } else if (list.Size() == 3) {
        *to = glm::quat(list.FirstThree() * kRadiansOfDegree);
    } else {
        LOG_W("no matching quaternion definition in configuration setting message");
    }
}
