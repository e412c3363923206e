#pragma once
// Values with a "specified" mark, and strings of bounded length.
//
// A configuration is made of optional properties: merging and filtering work
// property by property on the mark, so "not given" and "given as empty" stay
// apart. Plain value types: copying copies the value and the mark.
// Thread safety: none of their own; share them like any value.
#include <cstddef>
#include <ostream>
#include <string>

namespace KQC {

template <class T>
class KQCOptionalProperty {
public:
    KQCOptionalProperty() : m_value(), m_specified(false) {}
    // A given value is specified: lets callers write setName(text).
    KQCOptionalProperty(const T& value) : m_value(value), m_specified(true) {}

    bool isSpecified() const { return m_specified; }
    // The value; a default-made T when not specified.
    const T& get() const { return m_value; }
    T& get() { return m_value; }
    void set(const T& value)
    {
        m_value = value;
        m_specified = true;
    }
    void unset()
    {
        m_value = T();
        m_specified = false;
    }

    bool operator==(const KQCOptionalProperty& other) const
    {
        if (m_specified != other.m_specified)
            return false;
        return !m_specified || m_value == other.m_value;
    }
    bool operator!=(const KQCOptionalProperty& other) const { return !(*this == other); }

private:
    T m_value;
    bool m_specified;
};

// A string cut to at most N bytes: the environment type is one, and a longer
// text given to it is truncated rather than refused.
template <std::size_t N>
class limited_length_string {
public:
    limited_length_string() = default;
    limited_length_string(const std::string& text) : m_text(text.substr(0, N)) {}
    limited_length_string(const char* text) : limited_length_string(std::string(text ? text : "")) {}

    static constexpr std::size_t maxLength() { return N; }
    const std::string& str() const { return m_text; }
    const char* c_str() const { return m_text.c_str(); }
    operator const std::string&() const { return m_text; }
    bool empty() const { return m_text.empty(); }

    bool operator==(const limited_length_string& other) const { return m_text == other.m_text; }
    bool operator!=(const limited_length_string& other) const { return m_text != other.m_text; }
    bool operator<(const limited_length_string& other) const { return m_text < other.m_text; }

private:
    std::string m_text;
};

template <std::size_t N>
std::ostream& operator<<(std::ostream& out, const limited_length_string<N>& text)
{
    return out << text.str();
}

} // namespace KQC
