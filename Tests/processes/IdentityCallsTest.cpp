// The exported calls between processes: the normal course, both asynchronous pairs, and what a provider can
// answer.

#include <signal.h>

#include "Rig.h"

namespace vq::test {
namespace {

class IdentityCalls : public testing::Test {
protected:
    void Start(std::vector<std::string> const& providerSettings = {}) {
        m_rig.StartServer();
        m_rig.StartProvider(providerSettings);
    }

    Rig m_rig;
};

TEST_F(IdentityCalls, NamesThenValuesGiveTheGrantedProfile) {
    Start();
    Caller caller;
    CallResult const names = caller.Call("names");
    EXPECT_EQ(names.code, kOk);
    EXPECT_EQ(names.rest.substr(0, 18), "8 0:GivenName::0:0") << names.rest;

    caller.Call("request");
    CallResult const values = caller.Call("values");
    EXPECT_EQ(values.code, kOk);
    EXPECT_NE(values.rest.find(" 0:GivenName:Ada:1:1 "), std::string::npos) << values.rest;
    EXPECT_NE(values.rest.find(" 4:PhoneNumber::1:0 "), std::string::npos) << values.rest;

    CallResult const released = caller.Call("release");
    EXPECT_EQ(released.code, kOk);
    EXPECT_NE(released.rest.find("GivenName:Ada"), std::string::npos)
        << "what the caller holds stays readable: " << released.rest;
}

TEST_F(IdentityCalls, KnownNamesAreChosenByKeyAndAKeyOutsideTheEnumerationAborts) {
    Start();
    Caller caller;
    CallResult const known = caller.Call("known 7 2");
    EXPECT_EQ(known.code, kOk);
    EXPECT_EQ(known.rest, "2 2:Email::0:0 7:UserId::0:0");
    caller.Begin("known 8");
    EXPECT_EQ(caller.Process().WaitForExit(kCallLimit), 128 + SIGABRT);
}

TEST_F(IdentityCalls, ASuccessWithoutAttributesEndsTheProcess) {
    Start({"Profile=[]"});
    Caller caller;
    caller.Begin("names");
    EXPECT_EQ(caller.Process().WaitForExit(kCallLimit), 128 + SIGABRT);
}

TEST_F(IdentityCalls, ValuesBeforeAnyNamesSendAnEmptyProfile) {
    Start();
    Caller caller;
    CallResult const values = caller.Call("values");
    EXPECT_EQ(values.code, kOk);
    EXPECT_EQ(values.rest, "none") << "the caller was never given the record";
}

TEST_F(IdentityCalls, AsynchronousPairsWorkLikeTheBlockingCalls) {
    Start({"DelayMs=150"});
    Caller caller;
    EXPECT_EQ(caller.Call("names-async").rest, "1");
    CallResult const names = caller.Call("names-wait 1 3000");
    EXPECT_EQ(names.code, kOk);
    EXPECT_EQ(names.rest.substr(0, 2), "8 ");
    EXPECT_EQ(caller.Call("names-wait 1 3000").code, kOk) << "a future may be waited on again";
    EXPECT_EQ(caller.Call("values-wait 1 3000").code, kOk) << "and by the other pair's function";

    caller.Call("request");
    EXPECT_EQ(caller.Call("values-async").rest, "2") << "one counter serves both pairs";
    CallResult const values = caller.Call("values-wait 2 3000");
    EXPECT_EQ(values.code, kOk);
    EXPECT_NE(values.rest.find("GivenName:Ada:1:1"), std::string::npos) << values.rest;
}

TEST_F(IdentityCalls, AnAnswerThatIsNotReadyInTimeIsATimeout) {
    Start({"DelayMs=60000"});
    Caller caller;
    EXPECT_EQ(caller.Call("names-async").code, kOk);
    EXPECT_EQ(caller.Call("names-wait 1 50").code, kTimeout);
}

TEST_F(IdentityCalls, AnUnknownFutureEmptiesTheProfileOfANamesWaitAlone) {
    Start();
    Caller caller;
    ASSERT_EQ(caller.Call("names").code, kOk);
    EXPECT_EQ(caller.Call("values-wait 77 100").code, kFailure);
    EXPECT_EQ(caller.Call("profile").rest.substr(0, 2), "8 ");
    CallResult const waited = caller.Call("names-wait 77 100");
    EXPECT_EQ(waited.code, kFailure);
    EXPECT_EQ(waited.rest, "0 null");
}

TEST_F(IdentityCalls, TheProvidersResultCodesPassThrough) {
    Start({"LoggedIn=false"});
    Caller caller;
    CallResult const names = caller.Call("names");
    EXPECT_EQ(names.code, kNotLoggedIn);
    EXPECT_EQ(names.rest, "0 null");

    m_rig.StopProvider();
    m_rig.StartProvider({"Result=123456"});
    CallResult odd = caller.Call("names");
    // The mapping event that follows the new provider may still be on its way.
    for (int tries = 0; odd.code == kFailure && tries < 50; ++tries) {
        odd = caller.Call("names");
    }
    EXPECT_EQ(odd.code, 123456U);
}

TEST_F(IdentityCalls, ReleaseEndsTheConnectionAndTheNextCallConnectsAnew) {
    Start();
    Caller caller;
    ASSERT_EQ(caller.Call("names-async").rest, "1");
    ASSERT_EQ(caller.Call("release").code, kOk);
    CallResult const names = caller.Call("names");
    EXPECT_EQ(names.code, kOk);
    EXPECT_EQ(names.rest.substr(0, 2), "8 ");
    EXPECT_EQ(caller.Call("names-async").rest, "2") << "the table of futures outlives a release";
}

TEST_F(IdentityCalls, NullArgumentsAreRefusedInTheStatedOrder) {
    Caller lonely;  // no server at all
    CallResult const names = lonely.Call("names-async-null");
    EXPECT_EQ(names.code, kInvalidParam);
    EXPECT_LT(names.duration, std::chrono::seconds(10)) << "before any wait for a connection";
    EXPECT_EQ(lonely.Call("names-wait-null").code, kInvalidParam);
    CallResult const values = lonely.Call("values-async-null");
    EXPECT_EQ(values.code, kNoLocalService) << "this test stands behind the wait for a connection";
    EXPECT_GE(values.duration, std::chrono::milliseconds(14900));
}

TEST_F(IdentityCalls, RepeatedReleaseAndConnectLeaveNothingBehind) {
    Start();
    Caller caller;
    ASSERT_EQ(caller.Call("cycles 2").code, kOk);
    std::string const before = caller.Call("resources").rest;
    ASSERT_EQ(caller.Call("cycles 5").code, kOk);
    EXPECT_EQ(caller.Call("resources").rest, before) << "descriptors and threads";
}

}  // namespace
}  // namespace vq::test
