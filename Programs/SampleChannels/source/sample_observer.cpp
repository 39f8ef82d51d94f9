// sample_observer: a stand-alone device that tells what it sees of sample producers.

#include "DeviceProgram/DeviceProgram.h"
#include "SampleObserver.h"

int main(int argc, char** argv) {
    vq::DeviceProgramOf<vq::sample::SampleObserver> program(
        "Prints rate, gaps and age of the samples that producers publish", "sample_observer.json");
    program.AddSetting("--prefixes", "Prefixes", "those of the producers, with commas between (sample.)");
    program.AddSetting("--queue", "Queue", "samples that a channel keeps (20)");
    program.AddSetting("--report-ms", "ReportMs", "milliseconds between two reports (1000)");
    program.AddSetting("--seconds", "Seconds", "ends after so long");
    program.AddSetting("--until", "Until", "ends when every counter has come so far");
    return program.Main(argc, argv);
}
