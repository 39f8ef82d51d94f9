#include "Misbehaviour.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

namespace vq::headset {

namespace {

void Sleep(int milliseconds) {
    ::poll(nullptr, 0, milliseconds);
}

void WriteSlowly(std::string const& text, int milliseconds) {
    constexpr std::size_t kPiece = 3;
    for (std::size_t at = 0; at < text.size(); at += kPiece) {
        std::fwrite(text.data() + at, 1, std::min(kPiece, text.size() - at), stdout);
        std::fflush(stdout);
        Sleep(milliseconds);
    }
}

void WriteBig(std::size_t bytes) {
    std::string const text(bytes, '#');
    for (std::FILE* const stream : {stdout, stderr}) {
        std::fwrite(text.data(), 1, text.size(), stream);
        std::fputc('\n', stream);
    }
}

}  // namespace

int AnswerBadly(std::pair<std::string, std::string> const& rule, std::string const& output, int code) {
    auto const& [what, argument] = rule;
    int const number = std::atoi(argument.c_str());
    if (what == "exit") {
        std::fprintf(stderr, "error: refused on demand\n");
        return number;
    }
    if (what == "signal") {
        ::raise(number);
    } else if (what == "hang") {
        while (true) {
            ::pause();
        }
    } else if (what == "garbage") {
        std::string garbage;
        for (int i = 0; i < 4096; ++i) {
            garbage += static_cast<char>(i * 7919 >> 3);
        }
        std::fwrite(garbage.data(), 1, garbage.size(), stdout);
        return 0;
    } else if (what == "slow") {
        WriteSlowly(output, number);
        return code;
    } else if (what == "big") {
        WriteBig(static_cast<std::size_t>(number));
    }
    std::fwrite(output.data(), 1, output.size(), stdout);
    return code;
}

}  // namespace vq::headset
