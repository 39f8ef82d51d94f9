#include "Utils/ProtoUtils.h"

#include <algorithm>
#include <chrono>

#include "Logging/Log.h"

namespace {

std::uint64_t SteadyMilliseconds() {
    auto const now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

}  // namespace

void ProtoUtilsDetail::FailWithoutOutput(void const* to) {
    VQ_CHECK(to != nullptr);
}

void ProtoUtilsDetail::ConvertTo(vq::sd::VQCoordinateFrameUID const& from, ::VQCoordinateFrameUID* to) {
    CheckOutput(to);
    to->data[0] = from.data_size() > 0 ? from.data(0) : 0;
    to->data[1] = from.data_size() > 1 ? from.data(1) : 0;
}

void ProtoUtilsDetail::ConvertTo(::VQCoordinateFrameUID const& from, vq::sd::VQCoordinateFrameUID* to) {
    CheckOutput(to);
    to->clear_data();
    AppendAll(from.data, *to->mutable_data());
}

void ProtoUtilsDetail::ConvertTo(::VQInputControllerState const& from, vq::sd::VQInputControllerState* to) {
    CheckOutput(to);
    CopyAllToMessage(from, *to);
    for (int finger = 0; finger < to->is_touch_active_size(); ++finger) {
        to->set_is_touch_active(finger, from.touch_pos_and_force[finger].z > 0.0f);
    }
    to->set_timestamp(SteadyMilliseconds());
}

void ProtoUtils::ConvertTo(::VQInputControllerState const& state,
                           vq::ch::InputControllerDataEvent* controllerEvent,
                           vq::ch::TransformChannelDataEvent* transformEvent) {
    ProtoUtilsDetail::CheckOutput(controllerEvent);
    ProtoUtilsDetail::CheckOutput(transformEvent);
    ProtoUtilsDetail::ConvertTo(state, controllerEvent->mutable_state());
    ProtoUtilsDetail::CopyAllToMessage(state, *transformEvent->mutable_transform());
}

void ProtoUtils::ConvertTo(::VQGraphicsClipExtentsInfoArrayEx const& from, vq::sd::ClipExtentsInfoArray* to) {
    ProtoUtilsDetail::CheckOutput(to);
    to->Clear();
    to->set_num_virtual_cameras(from.num_virtual_cameras);
    std::size_t const count = std::min<std::size_t>(from.num_virtual_cameras, std::size(from.extents));
    for (std::size_t index = 0; index < count; ++index) {
        ConvertTo(from.extents[index], to->add_extents());
    }
}

void ProtoUtils::ConvertTo(vq::math::VQMat4f const& from, glm::mat4* to) {
    ProtoUtilsDetail::CheckOutput(to);
    int const count = std::min(from.matrix_colmajor_size(), 16);
    for (int index = 0; index < count; ++index) {
        (*to)[index / 4][index % 4] = from.matrix_colmajor(index);
    }
}

void ProtoUtils::ConvertTo(glm::mat4 const& from, vq::math::VQMat4f* to) {
    ProtoUtilsDetail::CheckOutput(to);
    to->clear_matrix_colmajor();
    to->mutable_matrix_colmajor()->Reserve(16);
    for (int index = 0; index < 16; ++index) {
        to->add_matrix_colmajor(from[index / 4][index % 4]);
    }
}
