#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "Messaging/SharedBufferChannel.h"
#include "SparseDevice/SparseDevice.h"
#include "StreamWatch.h"

namespace vq::sample {

/// A device that observes the channels of sample producers and prints what it sees: rate, gaps, age of the
/// samples; an image's number is its generation. Says at its end what it has seen in all.
class SampleObserver : public SparseDevice {
public:
    SampleObserver() : SparseDevice(SparseDeviceType::Generic) {}
    ~SampleObserver() override;

    /// Makes the channels, also when the device has come back to the server.
    bool OnPostInit() override;
    bool OnUpdate() override;

private:
    using Clock = std::chrono::steady_clock;

    /// The channels of one producer, owned by the device, and what came over them.
    struct Producer {
        explicit Producer(std::string const& prefix);

        std::string prefix;
        ChannelObserver* poseChannel = nullptr;
        ChannelObserver* counterChannel = nullptr;
        SharedBufferChannelObserver* imageChannel = nullptr;
        StreamWatch pose;
        StreamWatch counter;
        StreamWatch image;
    };

    /// Of a channel's queue, unless the settings say otherwise.
    static constexpr std::size_t kCapacity = 20;

    bool MakeChannels(Producer& producer);
    void Look(Producer& producer);
    void LookAtImage(Producer& producer, std::uint64_t generation);
    bool IsDone(Clock::time_point now) const;

    std::vector<Producer> m_producers;
    std::vector<std::shared_ptr<IData>> m_samples;  ///< of one look, kept for its room
    std::chrono::milliseconds m_period{0};          ///< between two reports
    double m_seconds = 0;                           ///< to run; 0: no end
    std::uint64_t m_until = 0;                      ///< number to reach; 0: no end
    std::size_t m_capacity = kCapacity;
    Clock::time_point m_start;
    Clock::time_point m_lastReport;
};

}  // namespace vq::sample
