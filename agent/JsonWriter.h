#pragma once
// The console's one JSON text form: the escaping of strings and a writer
// that puts values on a stream as they are produced.
//
// Strings are written so that the output is valid JSON for any bytes:
// valid UTF-8 goes out as it is, except `"`, `\` and the control characters
// below U+0020 (\b \t \n \f \r, others \u00xx). A byte that is not part of a
// valid UTF-8 sequence (overlong forms, surrogates and code points above
// U+10FFFF are not valid) is written as \u00XX with XX the byte's value
// (always 80 to ff). Because the characters U+0080 to U+00FF themselves are
// never escaped (they go out as their UTF-8 bytes), a reader of the text
// can undo the rule: an escape \u0080 to \u00ff stands for that single
// raw byte. (A plain JSON parser reads it as the character U+00XX.)
#include <boost/json.hpp>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace kqagent {

// Appends `text` as a JSON string, quotes included.
void appendJsonString(std::string& out, std::string_view text);

// The JSON text of `value`, strings escaped as above.
std::string jsonText(const boost::json::value& value);

// Writes one JSON document to a stream piece by piece; commas and colons
// are put in by the writer. The caller keeps the nesting balanced. Pieces
// are gathered and go to the stream in large writes: whenever enough has
// gathered, when the outermost container closes, and at the end of the
// writer's life. Not thread safe; the stream must outlive the writer.
class JsonWriter {
public:
    explicit JsonWriter(std::ostream& out) : m_out(out) {}
    ~JsonWriter() { flush(); }
    JsonWriter(const JsonWriter&) = delete;
    JsonWriter& operator=(const JsonWriter&) = delete;

    void beginObject();
    void endObject();
    void beginArray();
    void endArray();
    // The key of the next member of the open object.
    void key(std::string_view name);
    void string(std::string_view text);
    void number(long long value);
    void unsignedNumber(unsigned long long value);
    void boolean(bool value);
    // Any value, strings escaped as above.
    void value(const boost::json::value& value);
    // Hands what has gathered to the stream.
    void flush();

private:
    // Before a value or a key: a comma unless it is the first of its
    // container, nothing right after a key.
    void separate();
    void open(char bracket);
    void close(char bracket);
    void gathered();

    std::ostream& m_out;
    std::string m_pending;
    // For every open container: whether nothing is in it yet.
    std::vector<bool> m_empty;
    bool m_afterKey = false;
};

} // namespace kqagent
