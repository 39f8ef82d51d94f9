// Sends every file of the folders and files named on the command line through a fuzz target.
// Fails when there is none.

#include <filesystem>
#include <fstream>
#include <iterator>

#include "FuzzTarget.h"

namespace {

int Replay(std::filesystem::path const& path) {
    if (std::filesystem::is_directory(path)) {
        int count = 0;
        for (auto const& entry : std::filesystem::directory_iterator(path)) {
            count += Replay(entry.path());
        }
        return count;
    }
    std::ifstream file(path, std::ios::binary);
    std::vector<char> const bytes{std::istreambuf_iterator<char>(file), {}};
    if (file.bad() || !file.is_open()) {
        std::fprintf(stderr, "cannot read %s\n", path.c_str());
        return 0;
    }
    std::printf("%s\n", path.c_str());
    std::fflush(stdout);  // before a crash, whose input it names
    TryInput({bytes.data(), bytes.size()});
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    int count = 0;
    for (int index = 1; index < argc; ++index) {
        count += Replay(argv[index]);
    }
    if (count == 0) {
        std::fprintf(stderr, "no inputs\n");
        return 1;
    }
    return 0;
}
