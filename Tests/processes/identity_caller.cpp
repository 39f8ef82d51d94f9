// An application under test: links the shared library alone and makes one exported call per line of its
// standard input. Each answer is one line "= CODE MILLISECONDS ...", so that a test can hold calls in flight.

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "vq_identity.h"
#include "vq_token_agent.h"

namespace {

VQIdentityProfile* g_profile = nullptr;

using Words = std::istringstream;

template <class T>
T Next(Words& words) {
    T value{};
    words >> value;
    return value;
}

std::string ProfileText() {
    if (g_profile == nullptr) {
        return "none";
    }
    std::ostringstream text;
    text << g_profile->attribute_count;
    if (g_profile->attribute_ptrs == nullptr) {
        text << " null";
        return text.str();
    }
    for (std::uint32_t i = 0; i < g_profile->attribute_count; ++i) {
        VQIdentityAttribute const& attribute = *g_profile->attribute_ptrs[i];
        text << " " << attribute.key << ":" << attribute.name << ":" << attribute.value << ":"
             << attribute.is_requested << ":" << attribute.is_granted;
    }
    return text.str();
}

std::size_t CountEntries(char const* directory) {
    std::size_t count = 0;
    for ([[maybe_unused]] auto const& entry : std::filesystem::directory_iterator(directory)) {
        ++count;
    }
    return count;
}

// Makes one call and prints its code, its duration and what `after` tells.
void Answer(std::function<VQResult()> const& call, std::function<std::string()> const& after) {
    auto const start = std::chrono::steady_clock::now();
    VQResult const code = call();
    auto const spent =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    std::cout << "= " << code << " " << spent.count() << " " << after() << std::endl;
}

VQResult Known(Words& words) {
    std::vector<VQIdentityAttributeKey> keys;
    for (int key; words >> key;) {
        keys.push_back(static_cast<VQIdentityAttributeKey>(key));
    }
    return VQIdentityGetKnownAttributeNames(keys.data(), static_cast<std::uint32_t>(keys.size()), &g_profile);
}

VQResult Cycles(int count) {
    for (int i = 0; i < count; ++i) {
        if (VQResult const result = VQIdentityGetAttributeNames(&g_profile); result != VQResult_Ok) {
            return result;
        }
        if (VQResult const result = VQIdentityReleaseUserProfile(g_profile); result != VQResult_Ok) {
            return result;
        }
    }
    return VQResult_Ok;
}

void Run(std::string const& command, Words& words) {
    std::uint64_t future = 0;
    auto const profile = [] { return ProfileText(); };
    auto const nothing = [] { return std::string(); };
    auto const newFuture = [&future] { return std::to_string(future); };
    std::map<std::string, std::function<void()>> const commands = {
        {"names", [&] { Answer([] { return VQIdentityGetAttributeNames(&g_profile); }, profile); }},
        {"known", [&] { Answer([&] { return Known(words); }, profile); }},
        {"values", [&] { Answer([] { return VQIdentityRequestAttributeValues(g_profile); }, profile); }},
        {"release", [&] { Answer([] { return VQIdentityReleaseUserProfile(g_profile); }, profile); }},
        {"names-async",
         [&] { Answer([&] { return VQIdentityGetAttributeNamesAsync(&future); }, newFuture); }},
        {"names-async-null",
         [&] { Answer([] { return VQIdentityGetAttributeNamesAsync(nullptr); }, nothing); }},
        {"names-wait",
         [&] {
             auto const waited = Next<std::uint64_t>(words);
             auto const timeout = Next<std::uint32_t>(words);
             Answer([=] { return VQIdentityGetAttributeNamesWait(waited, timeout, &g_profile); }, profile);
         }},
        {"names-wait-null",
         [&] { Answer([] { return VQIdentityGetAttributeNamesWait(1, 0, nullptr); }, nothing); }},
        {"values-async",
         [&] {
             Answer([&] { return VQIdentityRequestAttributeValuesAsync(g_profile, &future); }, newFuture);
         }},
        {"values-async-null",
         [&] { Answer([] { return VQIdentityRequestAttributeValuesAsync(g_profile, nullptr); }, nothing); }},
        {"values-wait",
         [&] {
             auto const waited = Next<std::uint64_t>(words);
             auto const timeout = Next<std::uint32_t>(words);
             Answer([=] { return VQIdentityRequestAttributeValuesWait(waited, timeout); }, profile);
         }},
        {"request",
         [&] {
             for (std::uint32_t i = 0; i < g_profile->attribute_count; ++i) {
                 g_profile->attribute_ptrs[i]->is_requested = true;
             }
             Answer([] { return VQResult_Ok; }, profile);
         }},
        {"profile", [&] { Answer([] { return VQResult_Ok; }, profile); }},
        {"cycles", [&] { Answer([&] { return Cycles(Next<int>(words)); }, nothing); }},
        {"resources",
         [&] {
             Answer([] { return VQResult_Ok; },
                    [] {
                        return std::to_string(CountEntries("/proc/self/fd")) + " " +
                               std::to_string(CountEntries("/proc/self/task"));
                    });
         }},
        {"exit", [] { std::exit(0); }},
        {"exit-from-thread", [] { std::thread([] { std::exit(0); }).join(); }},
        {"names-and-exit-meanwhile",
         [] {
             // A call is in flight on another thread when the process ends.
             std::thread([] { VQIdentityGetAttributeNames(&g_profile); }).detach();
             std::this_thread::sleep_for(std::chrono::milliseconds(300));
             std::exit(0);
         }},
    };
    auto const found = commands.find(command);
    if (found == commands.end()) {
        std::cout << "unknown command " << command << std::endl;
        std::exit(2);
    }
    found->second();
}

}  // namespace

int main() {
    std::cout << "ready" << std::endl;
    for (std::string line; std::getline(std::cin, line);) {
        Words words(line);
        Run(Next<std::string>(words), words);
    }
    return 0;
}
