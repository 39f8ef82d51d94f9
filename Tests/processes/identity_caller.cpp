// An application under test: links the shared library alone and makes one exported call per line of its
// standard input. Each answer is one line "= CODE MILLISECONDS ...", so that a test can hold calls in flight.

#include <sys/wait.h>
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
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(directory), {}));
}

VQResult Known(Words& words) {
    std::vector<VQIdentityAttributeKey> keys;
    for (int key; words >> key;) {
        keys.push_back(static_cast<VQIdentityAttributeKey>(key));
    }
    return VQIdentityGetKnownAttributeNames(keys.data(), static_cast<std::uint32_t>(keys.size()), &g_profile);
}

VQResult RequestAll() {
    for (std::uint32_t i = 0; i < g_profile->attribute_count; ++i) {
        g_profile->attribute_ptrs[i]->is_requested = true;
    }
    return VQResult_Ok;
}

VQResult Exit() {
    std::exit(0);
}

// A call is in flight on another thread when the process ends.
VQResult ExitMeanwhile() {
    std::thread([] { VQIdentityGetAttributeNames(&g_profile); }).detach();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    Exit();
    return VQResult_Ok;
}

// What a child gets that is forked off in the middle of a first connection, and then ends as programs do.
VQResult NamesInChild() {
    std::thread connecting([] { VQIdentityGetAttributeNames(&g_profile); });
    while (CountEntries("/proc/self/task") < 6) {  // among them the device's
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    pid_t const child = ::fork();
    if (child == 0) {
        ::alarm(60);  // ends one that hangs
        auto const code = static_cast<int>(VQIdentityGetAttributeNames(&g_profile));
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        ::_exit(code);  // at exit they look for the threads, too
#endif
        std::exit(code);
    }
    int status = 0;
    ::waitpid(child, &status, 0);
    connecting.join();
    return static_cast<VQResult>(WIFEXITED(status) ? WEXITSTATUS(status) : status);
}

void Run(std::string const& command, Words& words) {
    std::uint64_t future = 0;
    struct Command {
        std::function<VQResult()> call;
        std::function<std::string()> after = ProfileText;  // what it tells
    };
    auto const nothing = [] { return std::string(); };
    auto const newFuture = [&future] { return std::to_string(future); };
    auto const waited = [&words] { return Next<std::uint64_t>(words); };
    auto const timeout = [&words] { return Next<std::uint32_t>(words); };
    std::map<std::string, Command> const commands = {
        {"names", {[] { return VQIdentityGetAttributeNames(&g_profile); }}},
        {"known", {[&] { return Known(words); }}},
        {"values", {[] { return VQIdentityRequestAttributeValues(g_profile); }}},
        {"release", {[] { return VQIdentityReleaseUserProfile(g_profile); }}},
        {"names-async", {[&] { return VQIdentityGetAttributeNamesAsync(&future); }, newFuture}},
        {"names-wait", {[&] {
             auto const handle = waited();
             return VQIdentityGetAttributeNamesWait(handle, timeout(), &g_profile);
         }}},
        {"names-in-child", {NamesInChild}},
        {"values-async",
         {[&] { return VQIdentityRequestAttributeValuesAsync(g_profile, &future); }, newFuture}},
        {"values-async-null",
         {[] { return VQIdentityRequestAttributeValuesAsync(g_profile, nullptr); }, nothing}},
        {"values-wait", {[&] {
             auto const handle = waited();
             return VQIdentityRequestAttributeValuesWait(handle, timeout());
         }}},
        {"request", {RequestAll}},
        {"profile", {[] { return VQResult_Ok; }}},
        {"exit", {Exit}},
        {"exit-from-thread", {[] {
             std::thread(Exit).join();
             return VQResult_Ok;
         }}},
        {"names-and-exit-meanwhile", {ExitMeanwhile}},
    };
    auto const found = commands.find(command);
    if (found == commands.end()) {
        std::cout << "unknown command " << command << std::endl;
        std::exit(2);
    }
    auto const start = std::chrono::steady_clock::now();
    VQResult const code = found->second.call();
    auto const spent =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    std::ostringstream line;
    line << "= " << code << " " << spent.count() << " " << found->second.after() << "\n";
    // At once: the log of the library's threads goes to the same place.
    std::cout << line.str() << std::flush;
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
