// The console's JSON text: the same bytes as the JSON library for valid
// UTF-8, escapes of the raw byte for anything else, and a writer that puts
// commas and colons where they belong.
#include "JsonWriter.h"

#include <gtest/gtest.h>

#include <sstream>

namespace {

std::string quoted(const std::string& text)
{
    std::string out;
    kqagent::appendJsonString(out, text);
    return out;
}

} // namespace

TEST(JsonWriterTest, ValidUtf8IsWrittenAsTheJsonLibraryWritesIt)
{
    for (const std::string& text :
         {std::string(), std::string("plain"), std::string("q\"b\\s/"), std::string("\b\f\n\r\t"),
          std::string("\x01\x1f\x7f", 3), std::string("\0mid", 4), std::string("\xc2\x80\xc3\xbf\xc3\xa9"),
          std::string("\xe2\x82\xac \xef\xbf\xbf"), std::string("\xf0\x9f\x98\x80\xf4\x8f\xbf\xbf")})
        EXPECT_EQ(boost::json::serialize(boost::json::value(text)), quoted(text)) << text;
}

TEST(JsonWriterTest, BytesOutsideUtf8BecomeEscapesOfTheByte)
{
    const std::pair<std::string, std::string> cases[] = {
        {"\xff", R"("\u00ff")"},
        {"a\x80z", R"("a\u0080z")"},
        {"\xc3", R"("\u00c3")"},                                  // cut short at the end
        {"\xc3z", R"("\u00c3z")"},                                // cut short by ASCII
        {"\xc0\xaf", R"("\u00c0\u00af")"},                        // overlong '/'
        {"\xe0\x80\xaf", R"("\u00e0\u0080\u00af")"},              // overlong, three bytes
        {"\xed\xa0\x80", R"("\u00ed\u00a0\u0080")"},              // a surrogate
        {"\xf4\x90\x80\x80", R"("\u00f4\u0090\u0080\u0080")"},    // above U+10FFFF
        {"\xf8\x88\x80\x80\x80", R"("\u00f8\u0088\u0080\u0080\u0080")"},
        {"\xe2\x82\xe2\x82\xac", R"("\u00e2\u0082€")"},           // a broken one before a good one
    };
    for (const auto& each : cases) {
        std::string text = quoted(each.first);
        EXPECT_EQ(each.second, text);
        EXPECT_NO_THROW(boost::json::parse(text)) << text;
    }
}

TEST(JsonWriterTest, WriterPutsSeparatorsAndEscapesKeysAndValues)
{
    std::ostringstream out;
    kqagent::JsonWriter writer(out);
    writer.beginObject();
    writer.key("rc");
    writer.number(-1);
    writer.key("k\xff");
    writer.string("v\n");
    writer.key("list");
    writer.beginArray();
    writer.beginObject();
    writer.endObject();
    writer.value(boost::json::parse(R"({"a":[1,2.5,true,null],"b":"\u00e9"})"));
    writer.beginArray();
    writer.endArray();
    writer.endArray();
    writer.endObject();
    EXPECT_EQ(R"({"rc":-1,"k\u00ff":"v\n","list":[{},{"a":[1,2.5E0,true,null],"b":"é"},[]]})", out.str());
}
