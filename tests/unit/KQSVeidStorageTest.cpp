#include "KQSVeidStorage.h"

#include "TempHost.h"

#include "KQC/Error.h"

#include <gtest/gtest.h>

namespace {

class VeidStorageTest : public ::testing::Test {
protected:
    kqtest::TempHost host;
    KQS::KQSVeidStorage storage{host.path("current_veid")};
};

TEST_F(VeidStorageTest, GivesTheStoredDecimalButNeverLessThanTheMinimum)
{
    const struct {
        const char* file;  // nullptr: no file
        int veid;
    } cases[] = {{nullptr, 100}, {"42", 100}, {"not a number", 100}, {"250\n", 250}};
    for (const auto& c : cases) {
        if (c.file)
            host.write("current_veid", c.file);
        int veid = 0;
        ASSERT_EQ(0, storage.getVeid(veid, 100)) << (c.file ? c.file : "no file");
        EXPECT_EQ(c.veid, veid) << (c.file ? c.file : "no file");
    }
    ASSERT_EQ(0, storage.setVeid(1234));
    EXPECT_EQ("1234", host.read("current_veid"));
    int veid = 0;
    ASSERT_EQ(0, storage.getVeid(veid, 100));
    EXPECT_EQ(1234, veid);
}

TEST_F(VeidStorageTest, UnreadableAndUnwritableFilesAreReported)
{
    ASSERT_EQ(0, kqtest::run("mkdir '" + host.path("current_veid") + "'"));
    int veid = 7;
    EXPECT_EQ(-1, storage.getVeid(veid, 100));
    EXPECT_EQ("can't get ctid from file \"" + host.path("current_veid") + "\"", std::string(KQC::getErrorMessage()));

    KQS::KQSVeidStorage nowhere(host.path("missing/current_veid"));
    EXPECT_EQ(-1, nowhere.setVeid(5));
    EXPECT_EQ("can't save ctid to file \"" + host.path("missing/current_veid") + "\"",
              std::string(KQC::getErrorMessage()));
}

} // namespace
