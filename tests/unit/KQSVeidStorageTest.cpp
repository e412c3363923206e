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

TEST_F(VeidStorageTest, AMissingFileGivesTheMinimum)
{
    int veid = 0;
    ASSERT_EQ(0, storage.getVeid(veid, 100));
    EXPECT_EQ(100, veid);
}

TEST_F(VeidStorageTest, NeverGivesLessThanTheMinimum)
{
    int veid = 0;
    host.write("current_veid", "42");
    ASSERT_EQ(0, storage.getVeid(veid, 100));
    EXPECT_EQ(100, veid);
    host.write("current_veid", "not a number");
    ASSERT_EQ(0, storage.getVeid(veid, 100));
    EXPECT_EQ(100, veid);
    host.write("current_veid", "250\n");
    ASSERT_EQ(0, storage.getVeid(veid, 100));
    EXPECT_EQ(250, veid);
}

TEST_F(VeidStorageTest, StoresTheDecimalTextOnly)
{
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
