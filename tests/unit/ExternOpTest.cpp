// External operators on the host: real programs speaking over two pipes,
// through the single and the pool accessers.
#include "KQC/ExternOp.h"

#include "KQC/Error.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

class HostOperators : public KQC::KQCExternOpFactory {
public:
    explicit HostOperators(std::vector<std::string> args, int maxConnections = 2)
        : KQC::KQCExternOpFactory("test", maxConnections, 1, 5, 2), m_args(std::move(args))
    {
    }
    boost::shared_ptr<KQC::KQCExternProgramExecuter> createExecuter() const override
    {
        return boost::shared_ptr<KQC::KQCExternProgramExecuter>(new KQC::KQCExternProgramExecuter(m_args));
    }

private:
    std::vector<std::string> m_args;
};

KQC::KQCMessage request(int value)
{
    KQC::KQCMessage message;
    message.setName("request");
    message.getIterator().putInt(KQC::TAG_VEID, value);
    return message;
}

int valueOf(const KQC::KQCMessage& message)
{
    int value = -1;
    message.getIterator().getInt(KQC::TAG_VEID, value);
    return value;
}

// "cat" answers every request with itself: an operator in one word.
const std::vector<std::string> kEcho = {"cat"};
// Reads its request and goes without answering.
const std::vector<std::string> kMute = {"/bin/sh", "-c", "head -c 1 >/dev/null"};

TEST(ExternOpTest, TheSingleAccesserTalksToOneProgramAndReplacesOneThatFails)
{
    boost::shared_ptr<KQC::KQCExternOpFactory> echo(new HostOperators(kEcho));
    KQC::KQCAccesserSinglePrototype single(echo);
    for (int value : {7, 8}) {
        KQC::KQCMessage reply;
        ASSERT_EQ(0, single.call(request(value), reply)) << KQC::getErrorMessage();
        EXPECT_EQ(value, valueOf(reply));
    }

    boost::shared_ptr<KQC::KQCExternOpFactory> mute(new HostOperators(kMute));
    KQC::KQCAccesserSinglePrototype failing(mute);
    KQC::KQCMessage reply;
    EXPECT_EQ(-1, failing.call(request(1), reply));
    EXPECT_NE(std::string::npos, std::string(KQC::getErrorMessage()).find("without an answer"));
    EXPECT_EQ(-1, failing.call(request(1), reply)) << "a new operator is started, and fails the same way";
}

TEST(ExternOpTest, ThePoolServesCallersAtOnceWithinItsLimit)
{
    boost::shared_ptr<KQC::KQCExternOpFactory> echo(new HostOperators(kEcho, 2));
    KQC::KQCAccesserPoolPrototype pool(echo);
    std::atomic<int> answered(0);
    std::vector<std::thread> callers;
    for (int caller = 0; caller < 4; ++caller)
        callers.emplace_back([&, caller] {
            for (int round = 0; round < 3; ++round) {
                KQC::KQCMessage reply;
                if (pool.call(request(caller * 10 + round), reply) == 0 && valueOf(reply) == caller * 10 + round)
                    ++answered;
            }
        });
    for (std::thread& caller : callers)
        caller.join();
    EXPECT_EQ(12, answered.load());
    EXPECT_GE(2, pool.connectionCount());
    EXPECT_LE(1, pool.connectionCount()) << "one idle operator is kept";
}

TEST(ExternOpTest, AProgramThatCannotRunIsAFailureToStart)
{
    KQC::KQCExternProgramExecuter executer({"/nonexistent/operator"});
    boost::shared_ptr<KQC::KQCHandle> input, output;
    int pid = -1;
    EXPECT_EQ(-1, executer.createProcess(input, output, pid));
    EXPECT_NE(std::string::npos, std::string(KQC::getErrorMessage()).find("can't execute '/nonexistent/operator'"));
    EXPECT_FALSE(input);
    EXPECT_EQ(-1, pid);
}

} // namespace
