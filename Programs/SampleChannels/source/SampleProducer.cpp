#include "SampleProducer.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <numbers>

#include "BufferDescriptors.pb.h"
#include "Logging/Log.h"
#include "SampleFormat.h"

namespace vq::sample {

namespace {

constexpr std::uint32_t kBytesPerPixel = 4;
/// Nobody holds an image longer, unless he has died over it; then there are no images for a while, and
/// everything else goes on.
constexpr std::chrono::milliseconds kLockTimeout{100};
constexpr std::chrono::milliseconds kLockPause{1000};

}  // namespace

std::uint64_t Cadence::TakeDue(TimePoint now) {
    if (m_hertz <= 0) {
        return 0;
    }
    auto const due =
        static_cast<std::uint64_t>(std::chrono::duration<double>(now - m_start).count() * m_hertz);
    std::uint64_t const late = due - m_taken;
    if (static_cast<double>(late) > std::max(m_hertz, 1.0)) {
        m_start = now;
        m_taken = 0;
        return 1;
    }
    m_taken = due;
    return late;
}

SampleProducer::~SampleProducer() {
    std::string const& prefix = Configuration().GetValue("Prefix").string_value();
    std::printf("total %s sent %d\ntotal %s sent %d\ntotal %s sent %llu\n", PoseChannel(prefix).c_str(),
                m_number, CounterChannel(prefix).c_str(), m_number, ImageChannel(prefix).c_str(),
                static_cast<unsigned long long>(m_imageNumber));
    std::fflush(stdout);
}

bool SampleProducer::OnPostInit() {
    ConfigurationState const& settings = Configuration();
    std::string const prefix = settings.GetValue("Prefix").string_value();
    m_pose = MakeProducerChannel(PoseChannel(prefix), "Transform");
    m_counter = MakeProducerChannel(CounterChannel(prefix), "Integer");
    m_image = dynamic_cast<SharedBufferChannelProducer*>(
        MakeProducerChannel(ImageChannel(prefix), "Shared Buffer Data"));
    if (m_pose == nullptr || m_counter == nullptr || m_image == nullptr || !MakeImage()) {
        RequestExit(true);
        return false;
    }
    std::int64_t const samples = settings.GetValue("Samples").integer_value();
    m_lastNumber = samples > 0 && samples < INT32_MAX ? static_cast<std::int32_t>(samples) : INT32_MAX;
    auto const now = std::chrono::steady_clock::now();
    m_samples = Cadence(static_cast<double>(settings.GetValue("Rate").float_value()), now);
    m_images = Cadence(static_cast<double>(settings.GetValue("ImageRate").float_value()), now);
    return true;
}

bool SampleProducer::MakeImage() {
    ConfigurationState const& settings = Configuration();
    m_stride = static_cast<std::uint32_t>(settings.GetValue("Width").integer_value()) * kBytesPerPixel;
    auto const height = static_cast<std::uint64_t>(settings.GetValue("Height").integer_value());
    SharedMemoryAccessor& accessor = m_image->GetAccessor();
    // A buffer that is there, from an earlier run, is joined and keeps its size.
    if (!accessor.Create(m_stride * height, nullptr)) {
        return false;
    }
    if (accessor.Size() < m_stride) {
        LOG_E("The buffer of %s is there already and too small", accessor.GetId().c_str());
        return false;
    }
    return true;
}

bool SampleProducer::OnUpdate() {
    auto const now = std::chrono::steady_clock::now();
    std::uint64_t const due = m_samples.TakeDue(now);
    std::uint64_t const images = m_images.TakeDue(now);
    if (m_number == m_lastNumber) {
        return true;
    }
    for (std::uint64_t i = 0; i < due && m_number < m_lastNumber; ++i) {
        ++m_number;
        PublishPose();
        PublishCounter();
    }
    // An image shows the present: what is late is not made up for.
    if (images > 0 && now >= m_nextImage) {
        PublishImage();
    }
    return true;
}

void SampleProducer::PublishPose() {
    constexpr float kStep = 2 * std::numbers::pi_v<float> / 60;
    float const angle = kStep * static_cast<float>(m_number % 60);
    vq::ch::TransformChannelDataEvent pose;
    vq::math::VQVec3f& position = *pose.mutable_transform()->mutable_position();
    position.set_x(std::cos(angle));
    position.set_y(std::sin(angle));
    position.set_z(0);
    vq::math::VQQuaternionf& rotation = *pose.mutable_transform()->mutable_rotation();
    rotation.set_x(0);
    rotation.set_y(0);
    rotation.set_z(std::sin(angle / 2));
    rotation.set_w(std::cos(angle / 2));
    Stamp(pose, m_number);
    m_pose->SetDataFromMessage(&pose);
}

void SampleProducer::PublishCounter() {
    vq::ch::IntegerChannelDataEvent count;
    count.set_value(m_number);
    m_counter->SetDataFromMessage(&count);
}

void SampleProducer::PublishImage() {
    SharedMemoryAccessor& accessor = m_image->GetAccessor();
    bool timedOut = false;
    void* const memory = accessor.Lock(SharedMemory::Access::ReadWrite, kLockTimeout, &timedOut);
    if (!accessor.IsLocked()) {
        // Somebody may have given it a new mutex, or made it anew.
        LOG_W("The buffer of %s stays locked", accessor.GetId().c_str());
        accessor.Reset();
        m_nextImage = std::chrono::steady_clock::now() + kLockPause;
        return;
    }
    std::uint64_t const size = accessor.Size();
    if (memory == nullptr || size < sizeof(ImageHeader)) {
        accessor.Unlock();
        return;
    }
    ImageHeader const header{accessor.NextGeneration(), Microseconds()};
    std::memset(memory, static_cast<int>(header.number & 0xFF), size);
    std::memcpy(memory, &header, sizeof header);

    vq::bd::BufferDescriptor descriptor;
    descriptor.set_buffersize(size);
    descriptor.mutable_image()->set_width(m_stride / kBytesPerPixel);
    descriptor.mutable_image()->set_height(static_cast<std::uint32_t>(size / m_stride));
    descriptor.mutable_image()->set_stride(m_stride);
    accessor.Unlock(m_image, descriptor, 0, SharedMemoryAccessor::kToEnd);
    ++m_imageNumber;
}

}  // namespace vq::sample
