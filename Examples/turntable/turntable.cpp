// turntable: a sample device that turns, and publishes where it stands.

#include <chrono>
#include <cmath>
#include <utility>

#include "ChannelData.pb.h"
#include "DeviceProgram/DeviceProgram.h"
#include "Messaging/ChannelProducer.h"

namespace {

class Turntable : public SparseDevice {
public:
    Turntable() : SparseDevice(SparseDeviceType::Generic) {}

    /// When the device starts, and again at each return to a server: channels are made anew then.
    bool Init(ManifestProcessor::ManifestData const& manifest,
              SparseDeviceApplication* application) override {
        if (!SparseDevice::Init(manifest, application)) {
            return false;
        }
        m_angle = MakeProducerChannel("turntable.angle", "Integer");
        m_lastStep = Clock::now();
        return m_angle != nullptr;
    }

    /// The device's own work, "UpdateHertz" times a second.
    bool OnUpdate() override {
        Clock::time_point const now = Clock::now();
        double const seconds = std::chrono::duration<double>(now - std::exchange(m_lastStep, now)).count();
        float const speed = std::as_const(Configuration()).GetValue("Speed").float_value();
        m_degrees = std::fmod(m_degrees + speed * seconds, 360.0);
        vq::ch::IntegerChannelDataEvent sample;
        sample.set_value(static_cast<int>(m_degrees));
        m_angle->SetDataFromMessage(&sample);
        return true;
    }

private:
    using Clock = std::chrono::steady_clock;

    ChannelProducer* m_angle = nullptr;  // the device owns it
    Clock::time_point m_lastStep;
    double m_degrees = 0;
};

}  // namespace

int main(int argc, char** argv) {
    vq::DeviceProgramOf<Turntable> program("A turntable that says where it stands", "turntable.json");
    program.AddSetting("--speed", "Speed", "degrees a second");
    return program.Main(argc, argv);
}
