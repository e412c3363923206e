// Framed messages over real pipes, and the registry of child-environment
// pipe classes.
#include "KQC/Pipe.h"

#include "KQC/Error.h"

#include <gtest/gtest.h>

#include <string>
#include <unistd.h>

namespace {

struct RawPipe {
    boost::shared_ptr<KQC::KQCHandle> readEnd, writeEnd;
    RawPipe() { EXPECT_EQ(0, KQC::KQCIOPipePrototype::createPipe(readEnd, writeEnd)); }
    void send(const std::string& bytes) { ASSERT_EQ(ssize_t(bytes.size()), ::write(writeEnd->get(), bytes.data(), bytes.size())); }
};

KQC::KQCMessage named(const std::string& name, int value)
{
    KQC::KQCMessage message;
    message.setName(name);
    message.getIterator().putInt(KQC::TAG_VEID, value);
    return message;
}

TEST(PipeTest, FramesFollowEachOtherAndTheEndOfTheStreamIsNoError)
{
    RawPipe pipe;
    ASSERT_EQ(0, KQC::KQCIOPipePrototype::writeMessage(pipe.writeEnd->get(), named("first", 1)));
    ASSERT_EQ(0, KQC::KQCIOPipePrototype::writeMessage(pipe.writeEnd->get(), named("second", 2)));
    pipe.writeEnd->reset();
    for (int expected : {1, 2}) {
        KQC::KQCMessage got;
        ASSERT_EQ(0, KQC::KQCIOPipePrototype::readMessage(pipe.readEnd->get(), got, 1000)) << KQC::getErrorMessage();
        int value = 0;
        EXPECT_EQ(0, got.getIterator().getInt(KQC::TAG_VEID, value));
        EXPECT_EQ(expected, value);
    }
    KQC::KQCMessage none;
    EXPECT_EQ(1, KQC::KQCIOPipePrototype::readMessage(pipe.readEnd->get(), none, 1000));
}

TEST(PipeTest, BrokenFramesAreRefused)
{
    struct Case {
        const char* bytes;
        const char* message;
    };
    const Case cases[] = {
        {"hello\n", "bad message header"},
        {"KQCMSG \n", "bad message header"},
        {"KQCMSG -5\n", "bad message header"},
        {"KQCMSG 999999999\n", "over the limit"},
        {"KQCMSG 0000000000000000000000000000000001\n", "bad message header"},
        {"KQCMSG 40\n<message", "ended inside a message"},
        {"KQCMSG 3", "ended inside a message header"},
        {"KQCMSG 7\nnot xml", ""},
    };
    for (const Case& c : cases) {
        RawPipe pipe;
        pipe.send(c.bytes);
        pipe.writeEnd->reset();
        KQC::KQCMessage got;
        EXPECT_EQ(-1, KQC::KQCIOPipePrototype::readMessage(pipe.readEnd->get(), got, 1000)) << c.bytes;
        EXPECT_NE(std::string::npos, std::string(KQC::getErrorMessage()).find(c.message)) << KQC::getErrorMessage();
    }
}

TEST(PipeTest, ASilentPeerTimesOutAGoneOneIsAFailureNotASignalAndNoneHasNoPeer)
{
    RawPipe pipe;
    KQC::KQCMessage got;
    EXPECT_EQ(-1, KQC::KQCIOPipePrototype::readMessage(pipe.readEnd->get(), got, 10));
    EXPECT_NE(std::string::npos, std::string(KQC::getErrorMessage()).find("no message"));
    pipe.readEnd->reset();
    EXPECT_EQ(-1, KQC::KQCIOPipePrototype::writeMessage(pipe.writeEnd->get(), named("lost", 0)));

    // A pipe never attached has no peer at all.
    struct Plain : KQC::KQCEventLoopPipePrototype {
        int connect(const KQC::KQCConnectivityInfo*) override { return -1; }
    } unattached;
    KQC::KQCConnectivityInfo info;
    EXPECT_EQ(-4, unattached.getPeerInfo(info));
    EXPECT_EQ(-1, unattached.writeMessage(named("x", 0)));
}

KQC::KQCEventLoopPipePrototype* makeNothing(void*) { return nullptr; }

TEST(PipeTest, PipeClassesRegisterOnceByName)
{
    KQC::KQCChildEnvPipeFactory factory;
    EXPECT_EQ(-1, factory.registerClass("x", nullptr, nullptr, 0));
    EXPECT_EQ(0, factory.registerClass("x", makeNothing, nullptr, 0));
    EXPECT_EQ(-1, factory.registerClass("x", makeNothing, nullptr, 0));
    EXPECT_FALSE(factory.create("y", nullptr));
    EXPECT_FALSE(factory.create("x", nullptr));
    EXPECT_EQ(0, factory.unregisterClass("x"));
    EXPECT_EQ(-1, factory.unregisterClass("x"));
}

} // namespace
