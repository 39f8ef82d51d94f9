// sample_producer: a stand-alone device that publishes a pose, a counter and an image.

#include "DeviceProgram/DeviceProgram.h"
#include "SampleProducer.h"

int main(int argc, char** argv) {
    vq::DeviceProgramOf<vq::sample::SampleProducer> program("Publishes a pose, a counter and an image",
                                                            "sample_producer.json");
    program.AddSetting("--prefix", "Prefix", "in front of the channel names (sample.)");
    program.AddSetting("--rate", "Rate", "poses and counts a second (60)");
    program.AddSetting("--image-rate", "ImageRate", "images a second (30)");
    program.AddSetting("--width", "Width", "of the image, in pixels of 4 bytes (640)");
    program.AddSetting("--height", "Height", "of the image (480)");
    program.AddSetting("--samples", "Samples", "poses and counts after which everything stops");
    return program.Main(argc, argv);
}
