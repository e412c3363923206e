#include "KQC/Functionality.h"
#include "KQC/Request.h"

#include <gtest/gtest.h>

namespace {

struct Greeter {
    virtual ~Greeter() = default;
    virtual std::string greet() = 0;
};

class LocalGreeter : public KQC::KQCRequestModificatorLocal<Greeter> {
public:
    explicit LocalGreeter(const KQC::KQCAccessProvider& access) : KQCRequestModificatorLocal(access) {}
    std::string greet() override { return access() ? access()->clientContext()->name() : "agent"; }
};

typedef boost::shared_ptr<Greeter> GreeterPtr;
typedef KQC::KQCFunctionalMultiplexer<GreeterPtr> Mux;

boost::shared_ptr<KQC::KQCFunctionalFactoryLocal<GreeterPtr>> newFactory()
{
    return boost::shared_ptr<KQC::KQCFunctionalFactoryLocal<GreeterPtr>>(
        new KQC::KQCFunctionalFactoryLocalImpl<GreeterPtr, LocalGreeter>);
}

} // namespace

TEST(FunctionalityTest, RoutesRequestsByKeyToManagersBoundToTheClient)
{
    Mux mux;
    ASSERT_EQ(0, mux.registerLocalFactory(newFactory(), "corvantis"));
    KQC::KQCAccessProvider client(new KQC::KQCAccessProviderPrototype(
        boost::shared_ptr<KQC::KQCClientContext>(new KQC::KQCClientContext("alice"))));
    GreeterPtr manager;
    ASSERT_EQ(0, mux.create("corvantis", client, manager));
    EXPECT_EQ("alice", manager->greet());
    ASSERT_EQ(0, mux.create("corvantis", KQC::KQCAccessProvider(), manager));
    EXPECT_EQ("agent", manager->greet());

    EXPECT_EQ(-1, mux.create("", client, manager));
    EXPECT_STREQ("no manager is registered for ''", KQC::getErrorMessage());
}

TEST(FunctionalityTest, KeysAreRegisteredOnceAndRemovedOnce)
{
    Mux mux;
    EXPECT_EQ(0, mux.registerLocalFactory(newFactory(), ""));
    EXPECT_EQ(-1, mux.registerLocalFactory(newFactory(), ""));
    EXPECT_EQ(-1, mux.registerLocalFactory(nullptr, "x"));
    EXPECT_TRUE(mux.hasFactory(""));
    EXPECT_EQ(0, mux.unregisterLocalFactory(""));
    EXPECT_EQ(-1, mux.unregisterLocalFactory(""));
    EXPECT_TRUE(mux.keys().empty());
}

TEST(FunctionalityTest, AccessCheckerRefusesDeniedRightsWith414)
{
    boost::shared_ptr<KQC::KQCClientContext> denied(new KQC::KQCClientContext("bob", {43, 74}));
    KQC::KQCEID eid = KQC::KQCGUIDBase::generateNew();
    EXPECT_EQ(0, KQC::KQCAccessChecker::accessCheck(denied, eid, 44));
    EXPECT_EQ(414, KQC::KQCAccessChecker::accessCheck(denied, eid, 43));
    EXPECT_EQ(414, KQC::KQCAccessChecker::accessCheck(denied, 74));
    EXPECT_EQ(414, KQC::KQCAccessChecker::accessCheck(denied, KQC::KQCEIDSet{eid}, 43, false));
    EXPECT_EQ(0, KQC::KQCAccessChecker::accessCheck(denied, KQC::KQCEIDSet{eid}, 61, true));
    auto agent = KQC::KQCAccessChecker::getClientContext(KQC::KQCAccessProvider());
    EXPECT_EQ(0, KQC::KQCAccessChecker::accessCheck(agent, 74));
}

namespace {

class Listener : public KQC::KQCAccessProviderPrototype {
public:
    void progress(const std::string& line) override { lines.push_back(line); }
    std::vector<std::string> lines;
};

} // namespace

TEST(FunctionalityTest, ProgressLinesAreFormattedAndCutAtTheLimit)
{
    boost::intrusive_ptr<Listener> listener(new Listener);
    LocalGreeter manager{KQC::KQCAccessProvider(listener)};
    const std::string longName(KQC::KQCRequestContextLocal::kMaxProgressLine, 'n');
    manager.getContextLocal().freportProgress("Adding template '%s' (%d%%)", "web", 50);
    manager.getContextLocal().freportProgress("%s!", longName.c_str());
    ASSERT_EQ(2u, listener->lines.size());
    EXPECT_EQ("Adding template 'web' (50%)", listener->lines[0]);
    EXPECT_EQ(longName, listener->lines[1]);

    // The agent's own internal requests have nobody to tell.
    LocalGreeter internal{KQC::KQCAccessProvider()};
    internal.getContextLocal().freportProgress("%s", "dropped");
    EXPECT_EQ(2u, listener->lines.size());
}
