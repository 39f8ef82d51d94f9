#pragma once

#include <chrono>
#include <cstdint>

#include "Messaging/SharedBufferChannel.h"
#include "SparseDevice/SparseDevice.h"

namespace vq::sample {

/// Counts what falls due at a steady rate.
class Cadence {
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    /// @param hertz  0 and less: nothing ever falls due.
    Cadence(double hertz, TimePoint start) : m_hertz(hertz), m_start(start) {}

    /// How many have fallen due since the last time. Who is more than a second late is forgiven.
    std::uint64_t TakeDue(TimePoint now);

private:
    double m_hertz;
    TimePoint m_start;
    std::uint64_t m_taken = 0;
};

/// A device that publishes a pose, a counter and an image in shared memory at the rates of its settings. The
/// pose goes round a circle once in 60 samples. Says at its end how many of each it has published.
class SampleProducer : public SparseDevice {
public:
    SampleProducer() : SparseDevice(SparseDeviceType::Generic) {}
    ~SampleProducer() override;

    /// Makes the channels and the image's buffer, also when the device has come back to the server.
    bool OnPostInit() override;
    bool OnUpdate() override;

private:
    bool MakeImage();
    void PublishPose();
    void PublishCounter();
    void PublishImage();

    /// Owned by the device.
    ChannelProducer* m_pose = nullptr;
    ChannelProducer* m_counter = nullptr;
    SharedBufferChannelProducer* m_image = nullptr;
    std::uint32_t m_stride = 0;  ///< bytes a row of the image
    Cadence m_samples{0, {}};
    Cadence m_images{0, {}};
    Cadence::TimePoint m_nextImage;  ///< not before: the buffer was found locked
    std::int32_t m_number = 0;       ///< of the last pose and count
    std::int32_t m_lastNumber = 0;
    std::uint64_t m_imageNumber = 0;
};

}  // namespace vq::sample
