// Log files and logging options of the programs and of an application.

#include "Rig.h"
#include "TestSupport/Test.h"

namespace vq::test {
namespace {

TEST(LogFiles, ServerProviderAndApplicationShareOne) {
    std::string const file = HomeDirectory() + "all.log";
    Rig rig;
    rig.StartServer({"-V4-c+f", file, "--prune-after", "60000"});
    rig.StartProvider({}, {"--logfile", file, "--verbosity=4"});
    Caller caller({{"VQ_REMOTE_LOGFILE", file}, {"VDS_TESTS_DIR", ""}});
    EXPECT_EQ(caller.Call("names").code, kOk);
    EXPECT_THAT(ReadFile(file),
                HasSubstr("*** identity_caller pid " + std::to_string(caller.Process().Pid())));
    caller.ExpectCleanExit();
    rig.Provider().Stop();
    EXPECT_THAT(rig.Provider().Output(), HasSubstr("Starting application"));
    rig.Server().Stop();
    EXPECT_THAT(rig.Server().Output(), Not(HasSubstr(" V ["))) << "its console is off";
    std::string const text = ReadFile(file);
    EXPECT_THAT(text,
                AllOf(HasSubstr("*** vdserver pid "), HasSubstr(" <vdserver~"),
                      HasSubstr("*** mock_identity_device pid "), HasSubstr(" <mock_identity_device~")));
}

TEST(LogFiles, AProviderLogsToItsUsersFileUnlessToldNot) {
    std::string const file = HomeDirectory() + ".config/vqvds/logfile.txt";
    Rig rig;
    rig.StartServer();
    rig.StartProvider({}, {"-V4-c"});
    rig.Provider().Stop();
    std::string const text = ReadFile(file);
    EXPECT_THAT(text, AllOf(HasSubstr("*** mock_identity_device pid "), HasSubstr("V [")));
    rig.StartProvider({}, {"-V4", "--no-logfile"});
    rig.Provider().Stop();
    std::string const more = ReadFile(file).substr(text.size());
    EXPECT_THAT(more, Not(HasSubstr("V [")));
}

}  // namespace
}  // namespace vq::test
