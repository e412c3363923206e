#include "KQC/Error.h"
#include "KQC/Message.h"
#include "TempHost.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using KQC::KQCMessage;
using KQC::KQCMessageIterator;

class MessageTest : public ::testing::Test {
protected:
    std::string path(const std::string& name) const { return m_temp.path(name); }
    void writeFile(const std::string& name, const std::string& text) const
    {
        std::ofstream(path(name)) << text;
    }

    kqtest::TempDir m_temp;
};

struct Point {
    int x = 0;
    std::string label;
    int readFrom(KQCMessageIterator& it)
    {
        return it.getInt(KQC::TAG_ID, x) == 0 && it.getString(KQC::TAG_NAME, label) == 0 ? 0 : -1;
    }
    int writeTo(KQCMessageIterator& it) const
    {
        it.putInt(KQC::TAG_ID, x);
        return it.putString(KQC::TAG_NAME, label);
    }
};

TEST_F(MessageTest, ValuesAndPathsRoundTripThroughAFile)
{
    boost::shared_ptr<KQCMessage> message = KQC::KQCMsgFactory::createNew();
    message->setName("packet");
    KQCMessageIterator it = message->getIterator();
    ASSERT_EQ(it.enterOrCreate("data"), 0);
    ASSERT_EQ(it.enterOrCreate("kqsenvm"), 0);
    ASSERT_EQ(it.enterOrCreate("configuration"), 0);
    it.putInt(KQC::TAG_MIN_VEID, 200);
    it.putInt(KQC::TAG_MAX_VEID, 300);
    it.top();
    it.putString(KQC::TAG_NAME, "text with <xml> & \"quotes\"");
    ASSERT_EQ(message->save(path("m.xml")), 0);

    boost::shared_ptr<KQCMessage> loaded = KQC::KQCMsgFactory::createNew();
    ASSERT_EQ(loaded->load(path("m.xml")), 0) << KQC::getErrorMessage();
    EXPECT_EQ(loaded->getName(), "packet");
    KQCMessageIterator back = loaded->getIterator();
    std::string name;
    ASSERT_EQ(back.getString(KQC::TAG_NAME, name), 0);
    EXPECT_EQ(name, "text with <xml> & \"quotes\"");
    ASSERT_EQ(back.moveTo("data/kqsenvm/configuration"), 0);
    int low = 0, high = 0;
    EXPECT_EQ(back.getInt(1257, low), 0);
    EXPECT_EQ(back.getInt(1258, high), 0);
    EXPECT_EQ(low, 200);
    EXPECT_EQ(high, 300);
    EXPECT_EQ(back.currentPath(), "data/kqsenvm/configuration");
}

TEST_F(MessageTest, MissingPathsAndValuesAreReportedWithoutMovingTheIterator)
{
    KQCMessage message;
    KQCMessageIterator it = message.getIterator();
    it.createChild("data");
    it.top();
    EXPECT_EQ(it.moveTo("data/kqsenvm/configuration"), -1);
    EXPECT_EQ(it.currentPath(), "");
    int value = 0;
    EXPECT_EQ(it.getInt(KQC::TAG_MIN_VEID, value), -1);
    std::string text;
    it.putInt(KQC::TAG_NAME, 5);
    EXPECT_EQ(it.getString(KQC::TAG_NAME, text), -1) << "an int is not a string";
    EXPECT_EQ(it.up(), -1);
}

TEST_F(MessageTest, StringsWithAnyBytesSurviveTheFile)
{
    const std::string awkward[] = {"", " leading", "trailing ", "line\nbreak", "tab\there",
                                   "back\\slash", "ctrl\x01\x1f\x7f", "utf-8 \xc3\xa9\xe2\x82\xac", "\\x41"};
    KQCMessage message;
    KQCMessageIterator it = message.getIterator();
    for (const std::string& text : awkward)
        it.addString(KQC::TAG_ITEM, text);
    ASSERT_EQ(message.save(path("a.xml")), 0);
    KQCMessage loaded;
    ASSERT_EQ(loaded.load(path("a.xml")), 0) << KQC::getErrorMessage();
    std::vector<std::string> back;
    loaded.getIterator().getStrings(KQC::TAG_ITEM, back);
    ASSERT_EQ(back.size(), sizeof awkward / sizeof awkward[0]);
    for (size_t i = 0; i < back.size(); ++i)
        EXPECT_EQ(back[i], awkward[i]) << "entry " << i;
}

TEST_F(MessageTest, ObjectsAndListsOfObjects)
{
    KQCMessage message;
    KQCMessageIterator it = message.getIterator();
    Point one{1, "one"}, two{2, "two"};
    ASSERT_EQ(it.putObj(KQC::TAG_ENV_CONFIG, one), 0);
    ASSERT_EQ(it.putObj(KQC::TAG_ENV_CONFIG, two), 0) << "put replaces";
    it.addObj(KQC::TAG_QOS, one);
    it.addObj(KQC::TAG_QOS, two);
    Point read;
    ASSERT_EQ(it.getObj(1185, read), 0);
    EXPECT_EQ(read.x, 2);
    std::vector<Point> list;
    ASSERT_EQ(it.getObjs(KQC::TAG_QOS, list), 0);
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[1].label, "two");
    EXPECT_EQ(it.getObj(KQC::TAG_SAMPLE_CONFIG, read), -1);
}

TEST_F(MessageTest, ElementsCopyWithTheirRepeatsAndPathsIntoAnotherMessage)
{
    KQCMessage source, target;
    KQCMessageIterator from = source.getIterator();
    from.moveTo("/");
    from.createChild("1624");
    from.addString(KQC::TAG_ITEM, "a");
    from.addString(KQC::TAG_NAME, "between");
    from.addString(KQC::TAG_ITEM, "b");
    ASSERT_EQ(from.moveTo("/envSample"), 0) << "numbers and names are one key";
    KQCMessageIterator to = target.getIterator();
    to.enterOrCreate("envSample");
    ASSERT_EQ(from.copyElementsTo("item", to), 0);
    EXPECT_EQ(from.copyElementsTo("missing", to), -1);
    std::vector<std::string> items;
    to.getStrings(KQC::TAG_ITEM, items);
    EXPECT_EQ(items, (std::vector<std::string>{"a", "b"}));
    EXPECT_FALSE(to.has(KQC::TAG_NAME));

    // A path copies into the same place of another message.
    KQCMessage pathSource, pathTarget;
    KQCMessageIterator path = pathSource.getIterator();
    path.createChild("1624");
    path.createChild("1872");
    path.putString(KQC::TAG_HOSTNAME, "h");
    path.createChild("nameservers");
    path.addString(KQC::TAG_ITEM, "1.1.1.1");
    KQCMessageIterator into = pathTarget.getIterator();
    ASSERT_EQ(path.copyPathTo("envSample/sampleConfig/hostname", into), 0);
    ASSERT_EQ(path.copyPathTo("/1624/1872/nameservers", into), 0);
    EXPECT_EQ(path.copyPathTo("envSample/sampleConfig/domain", into), -1);
    EXPECT_EQ(path.copyPathTo("envSample/missing/hostname", into), -1);
    KQCMessageIterator check = pathTarget.getIterator();
    ASSERT_EQ(check.moveTo("envSample/sampleConfig"), 0);
    std::string hostname;
    EXPECT_EQ(check.getString(KQC::TAG_HOSTNAME, hostname), 0);
    EXPECT_EQ(hostname, "h");
    EXPECT_EQ(check.keys(), (std::vector<std::string>{"hostname", "nameservers"}));
    EXPECT_EQ(check.enter("nameservers"), 0);
}

std::string repeated(const std::string& piece, int times)
{
    std::string text;
    for (int i = 0; i < times; ++i)
        text += piece;
    return text;
}

// Elements nested `levels` deep inside a message, properly closed.
std::string nestedNodes(int levels)
{
    return "<message>" + repeated("<node key=\"a\">", levels) + repeated("</node>", levels) + "</message>";
}

TEST_F(MessageTest, MalformedFilesAreErrorsAndLeaveTheMessageAlone)
{
    const std::string broken[] = {"", "not xml at all", "<message><int key=\"veid\">12x</int></message>",
                                  "<message><int>5</int></message>", "<other/>",
                                  "<message><str key=\"a\" escaped=\"1\">bad\\q</str></message>",
                                  "<message><node key=\"a\"><int key=\"b\">1</int>",
                                  // Nesting deep enough to exhaust the stack of a recursive reader,
                                  // plainly and with closing tags hidden where the reader skips them.
                                  repeated("<a>", 100000), nestedNodes(65),
                                  "<message>" + repeated("<node key=\"a\"><!-- </node> -->", 100000),
                                  "<message>" + repeated("<node key=\"a\"><![CDATA[</node>]]>", 100000),
                                  "<message>" + repeated("<node key=\"a\"><!DOCTYPE x [</node>]>", 100000),
                                  "<message>" + repeated("<node key=\"a\" k=\"/></node>\">", 100000)};
    KQCMessage message;
    message.setName("kept");
    message.getIterator().putInt(KQC::TAG_VEID, 7);
    int n = 0;
    for (const std::string& text : broken) {
        writeFile("bad" + std::to_string(n), text);
        EXPECT_EQ(message.load(path("bad" + std::to_string(n))), -1) << text;
        EXPECT_NE(std::string(KQC::getErrorMessage()).find("bad" + std::to_string(n)), std::string::npos);
        ++n;
    }
    int veid = 0;
    EXPECT_EQ(message.getIterator().getInt(KQC::TAG_VEID, veid), 0);
    EXPECT_EQ(veid, 7);
    EXPECT_EQ(message.getName(), "kept");
    EXPECT_EQ(message.load(path("absent")), -1);
}

// The plain form saving writes is read by a reader of its own; any other
// spelling of the same message goes to the general XML reader. Both must
// give the same message: each pair below is one message written plainly
// and written otherwise, and the two must save to the same text.
TEST_F(MessageTest, PlainAndOtherSpellingsOfAMessageLoadAlike)
{
    const std::string head = "<?xml version=\"1.0\" encoding=\"utf-8\"?>\n";
    const std::pair<std::string, std::string> pairs[] = {
        {head + "<message name=\"p\">\n <int key=\"veid\">-12</int>\n</message>\n",
         "<!-- c --><message name='p'><int key=\"veid\">-12</int></message>"},
        {"<message name=\"p\"><str key=\"a\">x y</str><str key=\"b\"></str></message>",
         "<message name=\"p\"><str key=\"a\">x&#32;y</str><str key=\"b\"/></message>"},
        {"<message name=\"p\"><str key=\"a\" escaped=\"1\">\\x20t\\n</str></message>",
         "<message name=\"p\"><str escaped=\"1\" key=\"a\" >\\x20t\\n</str ></message>"},
        {"<message name=\"p\"><str key=\"a\" escaped=\"0\">\\n</str></message>",
         "<message name=\"p\"><str key=\"a\"><![CDATA[\\n]]></str></message>"},
        {"<message name=\"p\">\r\n<node key=\"n\">\t<int key=\"i\"> 5</int><node key=\"m\"></node></node></message>",
         "<message name=\"p\"><node key=\"n\"><int key=\"i\"> 5</int><!-- x --><node key=\"m\"/></node></message>"},
        {"<message><str key=\"a\">1 &lt; 2</str></message>", "<message><str key=\"a\"><![CDATA[1 < 2]]></str></message>"},
    };
    for (const auto& pair : pairs) {
        KQCMessage plain, other;
        ASSERT_EQ(plain.loadFromString(pair.first), 0) << pair.first << ": " << KQC::getErrorMessage();
        ASSERT_EQ(other.loadFromString(pair.second), 0) << pair.second << ": " << KQC::getErrorMessage();
        std::string plainText, otherText;
        ASSERT_EQ(plain.saveToString(plainText), 0);
        ASSERT_EQ(other.saveToString(otherText), 0);
        EXPECT_EQ(plainText, otherText) << pair.first;
        // What saving writes reads back to itself.
        KQCMessage again;
        std::string againText;
        ASSERT_EQ(again.loadFromString(plainText), 0);
        ASSERT_EQ(again.saveToString(againText), 0);
        EXPECT_EQ(againText, plainText);
    }
}

// Whatever stands where an agent file should be, loading fails at once
// with a message that names the file and the real cause.
TEST_F(MessageTest, HostileFilesFailByNameWithTheirCause)
{
    struct Case {
        const char* name;
        const char* make;   // shell command making $F
        const char* cause;  // in the message
    } cases[] = {
        {"fifo", "mkfifo \"$F\"", "not a regular file"},
        {"zero", "ln -s /dev/zero \"$F\"", "not a regular file"},
        {"random", "ln -s /dev/urandom \"$F\"", "not a regular file"},
        {"folder", "mkdir \"$F\"", "Is a directory"},
        {"huge", "truncate -s 9M \"$F\"", "larger than"},
        {"garbage", "head -c 4096 /dev/urandom > \"$F\"", "malformed message"},
        {"nested", "python3 -c \"print('<a>' * 100000)\" > \"$F\"", "nested deeper than 64"},
        {"empty", ": > \"$F\"", "malformed message"},
        {"absent", "true", "No such file or directory"},
    };
    for (const Case& c : cases) {
        const std::string file = path(c.name);
        ASSERT_EQ(std::system(("F='" + file + "'; " + c.make).c_str()), 0) << c.name;
        KQCMessage message;
        EXPECT_EQ(message.load(file), -1) << c.name;
        const std::string error = KQC::getErrorMessage();
        EXPECT_NE(error.find(file), std::string::npos) << c.name << ": " << error;
        EXPECT_NE(error.find(c.cause), std::string::npos) << c.name << ": " << error;
    }
}

// Every level holds each kind of element, in an order that differs from
// the order of the kinds, so that a save which regroups or reorders
// children, or loses one level's attributes, shows.
TEST_F(MessageTest, EveryLevelOfADeepMessageRoundTripsInOrder)
{
    const int levels = 63;
    KQCMessage message;
    message.setName("deep");
    KQCMessageIterator it = message.getIterator();
    for (int level = 0; level < levels; ++level) {
        it.addString(KQC::TAG_ITEM, " edge " + std::to_string(level));
        it.addInt(KQC::TAG_ID, level);
        it.addString(KQC::TAG_ITEM, "plain");
        it.createChild("a");
    }
    std::string saved;
    ASSERT_EQ(message.saveToString(saved), 0);
    KQCMessage loaded;
    ASSERT_EQ(loaded.loadFromString(saved), 0) << KQC::getErrorMessage();
    EXPECT_EQ(loaded.getName(), "deep");
    KQCMessageIterator back = loaded.getIterator();
    for (int level = 0; level < levels; ++level) {
        ASSERT_EQ(back.keys(), (std::vector<std::string>{"item", "id", "item", "a"})) << level;
        std::vector<std::string> items;
        back.getStrings(KQC::TAG_ITEM, items);
        EXPECT_EQ(items, (std::vector<std::string>{" edge " + std::to_string(level), "plain"}));
        int id = -1;
        EXPECT_EQ(back.getInt(KQC::TAG_ID, id), 0);
        EXPECT_EQ(id, level);
        ASSERT_EQ(back.enter("a"), 0) << level;
    }
    EXPECT_TRUE(back.keys().empty());
    std::string savedAgain;
    ASSERT_EQ(loaded.saveToString(savedAgain), 0);
    EXPECT_EQ(savedAgain, saved);

    // Nesting up to the limit loads from a file in any spelling.
    writeFile("deep", nestedNodes(levels));
    KQCMessage fromFile;
    ASSERT_EQ(fromFile.load(path("deep")), 0) << KQC::getErrorMessage();
    EXPECT_EQ(fromFile.getIterator().moveTo(repeated("a/", levels)), 0);
}

TEST_F(MessageTest, SaveReplacesTheFileAndLeavesNoTemporaryBehind)
{
    KQCMessage message;
    message.getIterator().putInt(KQC::TAG_VEID, 1);
    ASSERT_EQ(message.save(path("f.xml")), 0);
    message.getIterator().putInt(KQC::TAG_VEID, 2);
    ASSERT_EQ(message.save(path("f.xml")), 0);
    KQCMessage loaded;
    ASSERT_EQ(loaded.load(path("f.xml")), 0);
    int veid = 0;
    loaded.getIterator().getInt(KQC::TAG_VEID, veid);
    EXPECT_EQ(veid, 2);
    EXPECT_EQ(std::system(("test $(ls '" + m_temp.dir() + "' | wc -l) -eq 1").c_str()), 0);
    EXPECT_EQ(message.save(path("no/such/dir/f.xml")), -1);
}

} // namespace
