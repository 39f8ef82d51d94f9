// The shared library at work: its functions, a server and a provider.

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "Identity.pb.h"
#include "IdentityWorld.h"
#include "vq_identity.h"

using vq::test::IdentityWorld;
namespace sd = vq::sd;

namespace {

std::size_t ThreadCount() {
    auto const tasks = std::filesystem::directory_iterator("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
}

void FillProfile(sd::VQIdentityProfile& profile, int attributes, std::string const& value) {
    profile.set_attribute_count(static_cast<std::uint32_t>(attributes));
    for (int i = 0; i < attributes; ++i) {
        sd::VQIdentityAttribute& attribute = *profile.add_attributes();
        attribute.set_key(static_cast<sd::VQIdentityAttributeKey>(i));
        attribute.set_name("name" + std::to_string(i));
        attribute.set_value(value);
        attribute.set_is_requested(false);
        attribute.set_is_granted(!value.empty());
    }
}

/// Answers with as many attributes, nameless values included.
template <class R>
void AnswerProfile(IdentityWorld& world, int attributes, std::string const& value, std::uint32_t result = 0) {
    world.provider.On<R>([=](R const&, typename R::Reply& reply) {
        reply.set_result(static_cast<std::int32_t>(result));
        FillProfile(*reply.mutable_profile(), attributes, value);
    });
}

template <class R>
void AnswerHandle(IdentityWorld& world, std::uint64_t handle) {
    world.provider.On<R>([=](R const&, typename R::Reply& reply) {
        reply.mutable_handle()->set_handle(handle);
        reply.set_result(4);  // which nobody looks at
    });
}

void AnswerRelease(IdentityWorld& world) {
    using Release = sd::VQIdentityReleaseUserProfile;
    world.provider.On<Release>([](Release const&, Release::Reply& reply) { reply.set_result(4); });
}

class LibraryTest : public testing::Test {
protected:
    ~LibraryTest() override {
        AnswerRelease(m_world);
        VQIdentityReleaseUserProfile(nullptr);
    }

    IdentityWorld m_world;
};

}  // namespace

TEST_F(LibraryTest, AProfileIsFetchedAndReleasedAndFetchedAnew) {
    AnswerProfile<sd::VQIdentityGetAttributeNames>(m_world, 3, "");
    AnswerProfile<sd::VQIdentityRequestAttributeValues>(m_world, 3, "secret");
    AnswerRelease(m_world);
    std::size_t const threads = ThreadCount();

    VQIdentityProfile* profile = nullptr;
    ASSERT_EQ(VQIdentityGetAttributeNames(&profile), VQResult_Ok);
    ASSERT_EQ(profile->attribute_count, 3u);
    EXPECT_STREQ(profile->attribute_ptrs[2]->name, "name2");
    profile->attribute_ptrs[1]->is_requested = true;
    ASSERT_EQ(VQIdentityRequestAttributeValues(nullptr), VQResult_Ok);
    EXPECT_STREQ(profile->attribute_ptrs[2]->value, "secret");
    auto const sent = m_world.provider.Received<sd::VQIdentityRequestAttributeValues>();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_FALSE(sent[0].profile().attributes(0).is_requested());
    EXPECT_TRUE(sent[0].profile().attributes(1).is_requested());

    EXPECT_EQ(VQIdentityReleaseUserProfile(profile), VQResult_Ok);
    EXPECT_EQ(ThreadCount(), threads);
    EXPECT_EQ(m_world.server.Received<vq::vds::UnregisterSparseDevice>().size(), 1u);
    EXPECT_STREQ(profile->attribute_ptrs[2]->value, "secret") << "readable until names are fetched again";

    VQIdentityProfile* again = nullptr;
    ASSERT_EQ(VQIdentityGetAttributeNames(&again), VQResult_Ok);
    EXPECT_EQ(again, profile);
    EXPECT_STREQ(again->attribute_ptrs[2]->value, "");
    EXPECT_EQ(m_world.server.Received<vq::vds::RegisterSparseDevice>().size(), 2u);
}

TEST_F(LibraryTest, AFutureCanBeWaitedForAgainAndByEitherFunction) {
    AnswerHandle<sd::VQIdentityGetAttributeNamesAsync>(m_world, 700);
    AnswerHandle<sd::VQIdentityRequestAttributeValuesAsync>(m_world, 800);
    AnswerProfile<sd::VQIdentityGetAttributeNamesWait>(m_world, 2, "");
    AnswerProfile<sd::VQIdentityRequestAttributeValuesWait>(m_world, 2, "v");

    std::uint64_t names = 0;
    std::uint64_t values = 0;
    VQIdentityProfile* profile = nullptr;
    ASSERT_EQ(VQIdentityGetAttributeNamesAsync(&names), VQResult_Ok);
    EXPECT_EQ(VQIdentityRequestAttributeValuesAsync(nullptr, nullptr), VQResult_InvalidParam);
    ASSERT_EQ(VQIdentityRequestAttributeValuesAsync(nullptr, &values), VQResult_Ok);
    EXPECT_EQ(names, 1u);
    EXPECT_EQ(values, 2u);
    EXPECT_EQ(VQIdentityGetAttributeNamesWait(names, 11, &profile), VQResult_Ok);
    EXPECT_EQ(VQIdentityGetAttributeNamesWait(values, 22, &profile), VQResult_Ok);
    EXPECT_EQ(VQIdentityRequestAttributeValuesWait(names, 33), VQResult_Ok);
    EXPECT_EQ(profile->attribute_count, 2u);

    EXPECT_EQ(VQIdentityRequestAttributeValuesWait(3, 0), VQResult_UnspecifiedFailure);
    EXPECT_EQ(profile->attribute_count, 2u) << "an unknown future leaves the values";
    EXPECT_EQ(VQIdentityGetAttributeNamesWait(3, 0, &profile), VQResult_UnspecifiedFailure);
    EXPECT_EQ(profile->attribute_count, 0u) << "an unknown future empties the names";
    EXPECT_EQ(profile->attribute_ptrs, nullptr);

    AnswerRelease(m_world);
    ASSERT_EQ(VQIdentityReleaseUserProfile(nullptr), VQResult_Ok);
    EXPECT_EQ(VQIdentityRequestAttributeValuesWait(names, 44), VQResult_Ok) << "futures outlive a release";
    ASSERT_EQ(VQIdentityGetAttributeNamesAsync(&names), VQResult_Ok);
    EXPECT_EQ(names, 3u);

    std::vector<std::pair<std::uint64_t, std::uint32_t>> waits;
    for (auto const& wait : m_world.provider.Received<sd::VQIdentityGetAttributeNamesWait>()) {
        waits.emplace_back(wait.handle().handle(), wait.timeout());
    }
    for (auto const& wait : m_world.provider.Received<sd::VQIdentityRequestAttributeValuesWait>()) {
        waits.emplace_back(wait.handle().handle(), wait.timeout());
    }
    EXPECT_EQ(waits, (std::vector<std::pair<std::uint64_t, std::uint32_t>>{
                         {700, 11}, {800, 22}, {700, 33}, {700, 44}}));
}

TEST_F(LibraryTest, AProvidersCodePassesThroughAndARefusalHasTwoGroupsOfCodes) {
    VQIdentityProfile* profile = nullptr;
    std::uint64_t future = 0;
    AnswerHandle<sd::VQIdentityGetAttributeNamesAsync>(m_world, 1);
    ASSERT_EQ(VQIdentityGetAttributeNamesAsync(&future), VQResult_Ok);
    for (std::uint32_t const code : {7u, 0x7D4D0004u, 0x12345678u, 0xFFFFFFFFu}) {
        AnswerProfile<sd::VQIdentityGetKnownAttributeNames>(m_world, 2, "", code);
        VQIdentityAttributeKey const keys[] = {VQIdentityAttributeKey_7, VQIdentityAttributeKey_0};
        EXPECT_EQ(VQIdentityGetKnownAttributeNames(keys, 2, &profile), code);
        EXPECT_EQ(profile->attribute_count, 0u);
    }
    auto const known = m_world.provider.Received<sd::VQIdentityGetKnownAttributeNames>();
    EXPECT_EQ(known.at(0).keys(0), 7);
    EXPECT_EQ(known.at(0).keys(1), 0);

    // The provider refuses what it has no answer for.
    m_world.provider.On<sd::VQIdentityGetAttributeNamesAsync>(nullptr);
    struct Case {
        char const* name;
        std::function<VQResult()> call;
        VQResult result;
    };
    VQResult const local = VQResult_UnspecifiedFailure;
    VQResult const cloud = VQIdentityResult_FailedToConnectToCloudService;
    for (Case const& test : std::vector<Case>{
             {"names", [&] { return VQIdentityGetAttributeNames(&profile); }, local},
             {"values", [&] { return VQIdentityRequestAttributeValues(profile); }, local},
             {"release", [&] { return VQIdentityReleaseUserProfile(profile); }, cloud},
             {"names wait", [&] { return VQIdentityGetAttributeNamesWait(future, 0, &profile); }, cloud},
             {"values async", [&] { return VQIdentityRequestAttributeValuesAsync(profile, &future); }, cloud},
             {"values wait", [&] { return VQIdentityRequestAttributeValuesWait(future, 0); }, cloud},
         }) {
        SCOPED_TRACE(test.name);
        testing::internal::CaptureStderr();
        EXPECT_EQ(test.call(), test.result);
        EXPECT_NE(testing::internal::GetCapturedStderr().find("not today"), std::string::npos);
    }
}

TEST_F(LibraryTest, AServerThatIsTooNewLeavesTheCallsWithoutADevice) {
    m_world.server.SetProtocolVersion(13);
    VQIdentityProfile* profile = nullptr;
    testing::internal::CaptureStderr();
    EXPECT_EQ(VQIdentityGetAttributeNames(&profile), VQResult_UnspecifiedFailure);
    std::uint64_t future = 0;
    EXPECT_EQ(VQIdentityGetAttributeNamesAsync(&future), VQIdentityResult_FailedToConnectToCloudService);
    std::string const output = testing::internal::GetCapturedStderr();
    EXPECT_NE(output.find("(13 > 12)"), std::string::npos) << output;
    EXPECT_NE(output.find("Device is nullptr"), std::string::npos) << output;
    EXPECT_EQ(profile->attribute_count, 0u);
    EXPECT_TRUE(m_world.server.Received<vq::vds::GetDataPath>().empty());
}

// The child of such a test is a process of its own: it builds its world itself.
class LibraryDeathTest : public testing::Test {
protected:
    LibraryDeathTest() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(LibraryDeathTest, WhatHasNoResultCodeEndsTheProcess) {
    EXPECT_DEATH(
        {
            IdentityWorld world;
            VQIdentityProfile* profile = nullptr;
            AnswerProfile<sd::VQIdentityGetAttributeNames>(world, 0, "");
            VQIdentityGetAttributeNames(&profile);
        },
        "terminate called");
    EXPECT_DEATH(
        {
            IdentityWorld world;
            VQIdentityProfile* profile = nullptr;
            auto const key = static_cast<VQIdentityAttributeKey>(8);
            VQIdentityGetKnownAttributeNames(&key, 1, &profile);
        },
        "::vq::sd::VQIdentityAttributeKey_IsValid\\(value\\)");
}

TEST_F(LibraryDeathTest, AProcessThatExitsWithoutAReleaseUnregistersItsDevice) {
    EXPECT_EXIT(
        {
            static IdentityWorld* const world = new IdentityWorld;
            static std::size_t const threads = ThreadCount();
            // Registered before the library's first call, this runs behind the library's own end.
            std::atexit([] {
                bool const unregistered =
                    world->server.Received<vq::vds::UnregisterSparseDevice>().size() == 1;
                _exit(unregistered && ThreadCount() == threads ? 0 : 1);
            });
            AnswerProfile<sd::VQIdentityGetAttributeNames>(*world, 1, "");
            VQIdentityProfile* profile = nullptr;
            VQIdentityGetAttributeNames(&profile);
            std::exit(2);
        },
        testing::ExitedWithCode(0), "");
}
