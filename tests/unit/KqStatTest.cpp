// The SLM group parser over hand-built kernel replies.
#include "KQS/KqKernelAbi.h"
#include "KQS/KqStat.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace {

using KQS::KQSSLMGroup;

// Builds a reply: elements are appended inside the root, whose size is
// patched in at the end (or forced, to lie about it).
struct Reply {
    std::vector<unsigned char> bytes = std::vector<unsigned char>(4, 0);

    Reply& element(unsigned type, const void* value, unsigned size, unsigned claimed)
    {
        uint32_t header = KQ_SLM_HEADER(type, claimed);
        const unsigned char* raw = reinterpret_cast<const unsigned char*>(&header);
        bytes.insert(bytes.end(), raw, raw + 4);
        const unsigned char* data = static_cast<const unsigned char*>(value);
        bytes.insert(bytes.end(), data, data + size);
        return *this;
    }
    Reply& list() { return element(KQ_SLM_TYPE_LIST, nullptr, 0, 0); }
    Reply& u32(uint32_t value) { return element(KQ_SLM_TYPE_U32, &value, 4, 4); }
    Reply& u64(uint64_t value) { return element(KQ_SLM_TYPE_U64, &value, 8, 8); }
    Reply& triple(uint32_t a, uint32_t b, uint64_t value)
    {
        u32(a).u32(b);
        return a == 2 || a == 3 ? u32(static_cast<uint32_t>(value)) : u64(value);
    }
    void into(KQSSLMGroup& group, long rootSizeChange = 0) const
    {
        std::memcpy(group.buffer.data(), bytes.data(), bytes.size());
        uint32_t root = KQ_SLM_HEADER(KQ_SLM_TYPE_GROUP, bytes.size() - 4 + rootSizeChange);
        std::memcpy(group.buffer.data(), &root, 4);
    }
};

struct ParseCase {
    const char* what;
    Reply reply;
    long rootSizeChange;
    int expected;
};

TEST(KqStatTest, SlmRepliesParseOnlyWhenTheLastElementEndsOnTheRoot)
{
    uint32_t narrow = 7;
    const ParseCase cases[] = {
        {"an empty group", Reply().list(), 0, 0},
        {"two triples", Reply().list().triple(1, 10, 1ull << 40).triple(2, 10, 5), 0, 0},
        {"root longer than its elements", Reply().list().triple(1, 10, 3), 2, -1},
        {"last value passes the root", Reply().list().triple(1, 10, 3), -4, -1},
        {"no opener", Reply().triple(1, 10, 3), 0, -1},
        {"a 32-bit value where 64 bits belong", Reply().list().u32(1).u32(10).u32(3), 0, -1},
        {"a 64-bit value where 32 bits belong", Reply().list().u32(3).u32(10).u64(3), 0, -1},
        {"a key that is not 4 bytes", Reply().list().u64(1).u32(10).u64(3), 0, -1},
        {"a key whose size lies", Reply().list().element(KQ_SLM_TYPE_U32, &narrow, 4, 0x00FFFFF0u), 0, -1},
        {"a triple cut after its keys", Reply().list().u32(1).u32(10), 0, -1},
        {"a root claiming more than the buffer", Reply(), long(KQSSLMGroup::BufferSize), -1},
    };
    for (const ParseCase& c : cases) {
        KQSSLMGroup group;
        c.reply.into(group, c.rootSizeChange);
        EXPECT_EQ(group.parse(), c.expected) << c.what;
    }
}

TEST(KqStatTest, ParsedValuesAreFiledUnderTheirKeys)
{
    KQSSLMGroup group;
    Reply().list().triple(1, 10, 1ull << 40).triple(2, 10, 5).triple(4, 11, 9).into(group);
    ASSERT_EQ(group.parse(), 0);
    EXPECT_EQ(group.params[10][1].number(), 1ull << 40);
    EXPECT_EQ(group.params[10][2].number(), 5u);
    EXPECT_EQ(group.params[11][4].number(), 9u);
    EXPECT_EQ(group.params.size(), 2u);
    unsigned value = 0;
    EXPECT_EQ(group.params[10][2].getValue(value), 0);
    EXPECT_EQ(value, 5u);
    EXPECT_EQ(group.params[10][1].getValue(value), -1);
}

} // namespace
