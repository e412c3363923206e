// External operators inside a container: the parameter record, the classes
// the plug-in registers, and a real program started in a running container
// of a simulated host, speaking over its two pipes.
#include "KQSExternProgramExecuter.h"

#include "TempHost.h"

#include "KQC/Error.h"
#include "KQC/Tags.h"

#include <gtest/gtest.h>

#include <unistd.h>

namespace {

// A parameter node as the agent's configuration carries it.
KQC::KQCMessage paramsMessage(const char* type, std::vector<std::string> args, bool withVeid)
{
    KQC::KQCMessage message;
    KQC::KQCMessageIterator it = message.getIterator();
    if (type)
        it.putString(KQC::TAG_PARAMS_TYPE, type);
    for (const std::string& word : args)
        it.addString(KQC::TAG_ARGUMENT, word);
    if (withVeid)
        it.putInt(KQC::TAG_VEID, 101);
    return message;
}

TEST(KQSPluginParamsExternTest, ReadsTheProgramAndTheContainerOrNothing)
{
    struct Case {
        const char* type;
        std::vector<std::string> args;
        bool withVeid;
        bool reads;
    };
    const Case cases[] = {
        {"plugin_params_kqs_externType", {"op", "-v"}, true, true},
        {"plugin_params_kqs_externType", {"op"}, false, false},
        {"plugin_params_kqs_externType", {}, true, false},
        {"plugin_params_kqs_externType", {""}, true, false},
        {"plugin_params_kqs_extern", {"op"}, true, false},
        {nullptr, {"op"}, true, false},
    };
    for (const Case& c : cases) {
        KQC::KQCMessage message = paramsMessage(c.type, c.args, c.withVeid);
        boost::shared_ptr<KQC::KQCPluginParams> params;
        int rc = KQC::parserRegistry<KQC::KQCPluginParams>().parse(message.getIterator(), params);
        EXPECT_EQ(c.reads ? 0 : -1, rc) << (c.type ? c.type : "(no type)") << " " << c.args.size();
        if (!c.reads)
            continue;
        auto* own = dynamic_cast<KQS::KQSPluginParamsExtern*>(params.get());
        ASSERT_TRUE(own);
        EXPECT_EQ(101, own->veid);
        EXPECT_EQ(c.args, own->args);
    }
}

TEST(KQSPluginParamsExternTest, WritesTheArgumentsButNotTheContainer)
{
    KQS::KQSPluginParamsExtern params;
    params.args = {"op"};
    params.veid = 101;
    KQC::KQCMessage message;
    KQC::KQCMessageIterator it = message.getIterator();
    ASSERT_EQ(0, params.writeTo(it));
    EXPECT_FALSE(it.has(KQC::TAG_VEID));
    boost::shared_ptr<KQC::KQCPluginParams> back;
    EXPECT_EQ(-1, KQC::parserRegistry<KQC::KQCPluginParams>().parse(message.getIterator(), back));
}

class KQSExternProgramExecuterTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(0, host.simulated());
        ASSERT_EQ(0, host.kqsim("add 101 --state running"));
        ASSERT_EQ(0, host.kqsim("add 102 --state stopped"));
    }

    // A plug-in object of `className` that runs "cat" (an operator that
    // answers each request with itself) in container `veid`.
    boost::shared_ptr<KQC::KQCAccesserExternPrototype> echoIn(const char* className, int veid)
    {
        KQS::KQSPluginParamsExtern params;
        params.args = {"cat"};
        params.veid = veid;
        boost::shared_ptr<KQC::KQCPluginPrototype> made;
        EXPECT_EQ(0, KQC::getPluginFactory()->create(className, params, made)) << KQC::getErrorMessage();
        return boost::dynamic_pointer_cast<KQC::KQCAccesserExternPrototype>(made);
    }

    kqtest::TempHost host;
};

KQC::KQCMessage request(int value)
{
    KQC::KQCMessage message;
    message.setName("request");
    message.getIterator().putInt(KQC::TAG_VEID, value);
    return message;
}

TEST_F(KQSExternProgramExecuterTest, BothClassesRunTheOperatorInARunningContainerOnly)
{
    for (const char* className : {"kqs_extern", "kqs_extern_single"}) {
        boost::shared_ptr<KQC::KQCAccesserExternPrototype> running = echoIn(className, 101);
        ASSERT_TRUE(running) << className;
        EXPECT_EQ(std::string(className), running->getFactory()->getName());
        KQC::KQCMessage reply;
        ASSERT_EQ(0, running->call(request(5), reply)) << className << ": " << KQC::getErrorMessage();
        int value = 0;
        EXPECT_EQ(0, reply.getIterator().getInt(KQC::TAG_VEID, value));
        EXPECT_EQ(5, value);

        boost::shared_ptr<KQC::KQCAccesserExternPrototype> stopped = echoIn(className, 102);
        ASSERT_TRUE(stopped);
        EXPECT_EQ(-1, stopped->call(request(5), reply)) << className;
    }
}

TEST_F(KQSExternProgramExecuterTest, ParametersOfAnotherTypeMakeNoObject)
{
    KQC::KQCPluginParamsExtern foreign;
    foreign.args = {"cat"};
    boost::shared_ptr<KQC::KQCPluginPrototype> made;
    EXPECT_EQ(-1, KQC::getPluginFactory()->create("kqs_extern", foreign, made));
    EXPECT_FALSE(made);
}

TEST_F(KQSExternProgramExecuterTest, WorksWhenTheStandardDescriptorsAreFree)
{
    // With descriptor 0 closed the first pipe gets it; the executer must
    // move it before the child's own redirection would clobber it.
    int savedIn = ::dup(0);
    ASSERT_LE(0, savedIn);
    ::close(0);
    KQS::KQSExternProgramExecuter executer({"cat"}, 101, KQC::ConfigAgentRoot);
    KQC::KQCIOPipePrototype pipe;
    boost::shared_ptr<KQC::KQCHandle> input, output;
    int pid = -1;
    int rc = executer.createProcess(input, output, pid);
    ::dup2(savedIn, 0);
    ::close(savedIn);
    ASSERT_EQ(0, rc);
    pipe.attach(input, output, pid);
    ASSERT_EQ(0, pipe.writeMessage(request(9)));
    KQC::KQCMessage reply;
    ASSERT_EQ(0, pipe.readMessage(reply, 5000)) << KQC::getErrorMessage();
    int value = 0;
    reply.getIterator().getInt(KQC::TAG_VEID, value);
    EXPECT_EQ(9, value);
}

TEST_F(KQSExternProgramExecuterTest, AProgramThatCannotRunEndsItsProcessWithStatusOne)
{
    KQS::KQSExternProgramExecuter executer({"no-such-operator"}, 101, KQC::ConfigAgentRoot);
    boost::shared_ptr<KQC::KQCHandle> input, output;
    int pid = -1;
    ASSERT_EQ(0, executer.createProcess(input, output, pid));
    int status = 0;
    ASSERT_EQ(pid, ::waitpid(pid, &status, 0));
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(1, WEXITSTATUS(status));
}

} // namespace
