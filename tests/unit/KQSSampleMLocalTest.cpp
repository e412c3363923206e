// The sample store and the sample manager on a simulated host.
#include "KQSSampleMLocal.h"

#include "KQC/EnvCache.h"
#include "KQC/Error.h"
#include "KQC/Names.h"
#include "PropertyOf.h"
#include "TempHost.h"

#include <boost/make_shared.hpp>
#include <cstdio>
#include <gtest/gtest.h>

namespace {

using KQS::KQSSampleMLocal;

class SampleTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(0, host.simulated());
        std::remove(host.path("etc/sysconfig/kq-scripts/ve-basic.conf-sample").c_str());
    }
    void writeSample(const std::string& entry, const std::string& text)
    {
        host.write("etc/sysconfig/kq-scripts/" + entry, text);
    }
    std::map<std::string, KQC::KQCEnvSample> byName()
    {
        KQC::KQCEnvSampleList samples;
        KQSSampleMLocal::getSamples(samples);
        std::map<std::string, KQC::KQCEnvSample> out;
        for (const auto& sample : samples)
            out[kqtest::valueOf(*sample.config, &KQS::KQSEnvConfig::getName)] = sample;
        return out;
    }
    KQC::KQCEnvSample named(const std::string& name, const std::string& hostname = "h")
    {
        KQC::KQCEnvSample sample(KQC::KQCGUID(), boost::make_shared<KQS::KQSEnvConfig>());
        if (!name.empty())
            sample.config->setName(name);
        sample.config->setHostname(hostname);
        return sample;
    }

    kqtest::TempHost host;
    KQSSampleMLocal manager{KQC::KQCAccessProvider()};
};

TEST_F(SampleTest, OnlyCompleteSampleFileNamesAreListed)
{
    struct Case {
        const char* entry;
        const char* listedAs;  // nullptr: not a sample
    } cases[] = {
        {"ve-web.conf-sample", "web"},
        {"ve-.conf-sample", ""},
        {"ve-a.conf-sample.conf-sample", "a.conf-sample"},
        {"ve-x.conf-sample~tmpAbc123", nullptr},
        {"ve-x~tmp.conf-sample", nullptr},
        {"ve-mid.conf-sample.bak", nullptr},
        {"web.conf-sample", nullptr},
        {"101.conf", nullptr},
    };
    for (const Case& c : cases)
        writeSample(c.entry, "HOSTNAME=\"h\"\n");
    auto samples = byName();
    size_t listed = 0;
    for (const Case& c : cases) {
        if (!c.listedAs)
            continue;
        ++listed;
        EXPECT_TRUE(samples.count(c.listedAs)) << c.entry;
    }
    EXPECT_EQ(listed, samples.size());
}

TEST_F(SampleTest, AnIdentifierComesFromTheUuidOrElseFromThePath)
{
    const std::string uuid = "{0f1e2d3c-4b5a-6978-8796-a5b4c3d2e1f0}";
    writeSample("ve-fixed.conf-sample", "UUID=\"" + uuid + "\"\n");
    writeSample("ve-free.conf-sample", "HOSTNAME=\"h\"\n");
    auto first = byName();
    EXPECT_EQ(uuid, first["fixed"].id.toString());
    EXPECT_EQ(first["free"].id, byName()["free"].id);

    KQC::KQCGUID expected;
    KQSSampleMLocal::getPathGuid(KQSSampleMLocal::getSamplePath("free"), expected);
    EXPECT_EQ(expected, first["free"].id);

    ASSERT_EQ(0, std::rename(host.path("etc/sysconfig/kq-scripts/ve-free.conf-sample").c_str(),
                             host.path("etc/sysconfig/kq-scripts/ve-moved.conf-sample").c_str()));
    EXPECT_NE(first["free"].id, byName()["moved"].id);
}

TEST_F(SampleTest, TheOsNameStartsWithACapitalAndTheTemplateIsTheDistribution)
{
    writeSample("ve-os.conf-sample", "OSTEMPLATE=\"simos-9-x86_64\"\n");
    KQC::KQCOS os = kqtest::valueOf(*byName()["os"].config, &KQS::KQSEnvConfig::getOS);
    EXPECT_EQ("Linux", os.platform.get());
    EXPECT_EQ("simos-9-x86_64", os.distribution.get());
}

TEST_F(SampleTest, AddNamesAnonymousSamplesKeepsNamesUniqueAndInsideTheFolder)
{
    EXPECT_EQ(-1, KQSSampleMLocal::saveSample(named("../../escape")));
    EXPECT_TRUE(byName().empty());

    KQC::KQCGUID first, second, third;
    ASSERT_EQ(0, manager.add(named(""), &first));
    ASSERT_EQ(0, manager.add(named(""), &second));
    ASSERT_EQ(0, manager.add(named("web"), &third));
    auto samples = byName();
    ASSERT_EQ(3u, samples.size());
    EXPECT_EQ(first, samples["Anonymous_template"].id);
    EXPECT_EQ(second, samples["Anonymous_template_1"].id);
    EXPECT_EQ(third, samples["web"].id);
    EXPECT_EQ("h", kqtest::bashValue(KQSSampleMLocal::getSamplePath("web"), "HOSTNAME"));
}

TEST_F(SampleTest, DeletingReportsWhatItCouldNotFind)
{
    KQC::KQCGUID a, b;
    ASSERT_EQ(0, manager.add(named("a"), &a));
    ASSERT_EQ(0, manager.add(named("b"), &b));
    KQC::KQCGUID unknown(KQC::generateID());
    EXPECT_EQ(-1, manager.del({a, unknown}));
    EXPECT_EQ("Can't find the following templates: " + unknown.toString(), KQC::getErrorMessage());
    EXPECT_EQ(1u, byName().size());

    EXPECT_EQ(0, manager.del({}));
    EXPECT_TRUE(byName().empty());
}

TEST_F(SampleTest, SetReplacesCloneCopiesUnderANewName)
{
    KQC::KQCGUID id, copy;
    ASSERT_EQ(0, manager.add(named("web", "old"), &id));
    KQC::KQCEnvSample stored;
    ASSERT_EQ(0, manager.set(id, named("web", "new"), &stored));
    EXPECT_EQ(id, stored.id);
    EXPECT_EQ("new", kqtest::bashValue(KQSSampleMLocal::getSamplePath("web"), "HOSTNAME"));

    ASSERT_EQ(0, manager.clone(id, &copy));
    EXPECT_NE(id, copy);
    EXPECT_EQ(copy, byName()["web_1"].id);

    KQC::KQCEnvSample missing;
    EXPECT_EQ(-1, manager.get(&missing, KQC::KQCGUID(KQC::generateID())));
    EXPECT_STREQ("Can't find specified template", KQC::getErrorMessage());
}

// A client whose rights are listed as denied; it keeps its progress lines.
class Client : public KQC::KQCAccessProviderPrototype {
public:
    explicit Client(std::set<int> denied)
        : KQC::KQCAccessProviderPrototype(boost::make_shared<KQC::KQCClientContext>("client", std::move(denied)))
    {
    }
    void progress(const std::string& line) override { lines.push_back(line); }
    std::vector<std::string> lines;
};

TEST_F(SampleTest, ImportKeepsAnUnknownIdentityAndMakesNamesUnique)
{
    KQC::KQCEnvSample foreign = named("imp");
    foreign.id.generate();
    foreign.config->setVeid(4242);
    KQC::KQCGUID id;
    ASSERT_EQ(0, manager.importSample(foreign, &id)) << KQC::getErrorMessage();
    EXPECT_EQ(foreign.id, id);
    // The same sample again is another copy: a new identifier and name.
    KQC::KQCGUID again;
    ASSERT_EQ(0, manager.importSample(foreign, &again));
    EXPECT_NE(foreign.id, again);
    ASSERT_EQ(0, manager.importSample(named(""), nullptr));

    auto samples = byName();
    ASSERT_EQ(3u, samples.size());
    EXPECT_EQ(foreign.id, samples["imp"].id);
    EXPECT_EQ(again, samples["imp_1"].id);
    EXPECT_TRUE(samples["Anonymous_template"].id.isValid());
    int veid = 0;
    EXPECT_NE(0, samples["imp"].config->getVeid(veid));

    KQC::KQCEnvSample empty;
    EXPECT_EQ(-1, manager.importSample(empty, nullptr));
    EXPECT_STREQ("Can't import a template without a configuration", KQC::getErrorMessage());
    EXPECT_EQ(3u, byName().size());
}

TEST_F(SampleTest, ImportNeedsTheCreateRightOrTheSampleRightOnContainers)
{
    KQC::KQCEID child;
    child.generate();
    struct {
        std::set<int> denied;
        bool withContainer;
        int rc;
    } cases[] = {
        {{}, false, 0},
        {{KQC::RIGHT_ENV_CREATE}, true, 0},
        {{KQC::RIGHT_ENV_CREATE}, false, 414},
        {{KQC::RIGHT_ENV_CREATE, KQC::RIGHT_ENV_SET_FROM_SAMPLE}, true, 414},
    };
    for (const auto& c : cases) {
        if (c.withContainer)
            KQC::envCache()->insert(KQC::KQCEnv(child, "corvantis"));
        boost::intrusive_ptr<Client> client(new Client(c.denied));
        KQSSampleMLocal asClient{KQC::KQCAccessProvider(client)};
        EXPECT_EQ(c.rc, asClient.importSample(named("r"), nullptr)) << c.denied.size() << c.withContainer;
        if (c.rc == 0) {
            ASSERT_EQ(1u, client->lines.size());
            EXPECT_EQ("Importing template '", client->lines[0].substr(0, 20));
        } else {
            EXPECT_STREQ("access denied: right 63 on the host", KQC::getErrorMessage());
            EXPECT_TRUE(client->lines.empty());
        }
        (void)KQC::envCache()->remove(child);
    }
}

} // namespace
