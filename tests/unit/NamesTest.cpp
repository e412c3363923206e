// Digests, unique names and canonical paths.
#include "KQC/Names.h"

#include "KQC/GUID.h"

#include <gtest/gtest.h>

namespace {

TEST(NamesTest, DigestUniqueNamesAndCanonicalPaths)
{
    uint8_t digest[16];
    KQC::md5Digest("abc", digest);
    EXPECT_EQ("{90015098-3cd2-4fb0-d696-3f7d28e17f72}", KQC::KQCGUIDBase::fromBytes(digest).toString());
    KQC::md5Digest(std::string(100, 'a'), digest);  // two blocks
    EXPECT_EQ("{36a92cc9-4a9e-0fa2-1f62-5f8bfb007adf}", KQC::KQCGUIDBase::fromBytes(digest).toString());

    EXPECT_EQ("a", KQC::makeUniqueName({"b"}, "a"));
    EXPECT_EQ("a_2", KQC::makeUniqueName({"a", "a_1"}, "a"));

    struct {
        const char* in;
        const char* out;
    } paths[] = {{"/a//b/./c/", "/a/b/c"}, {"/a/../../b", "/b"}, {"a/../..", ".."}, {"", "."}, {"/", "/"}};
    for (const auto& p : paths)
        EXPECT_EQ(p.out, KQC::canonizePath(p.in, '/')) << p.in;
}

} // namespace
