#pragma once
// Values with a "specified" mark, and strings of bounded length.
//
// A configuration is made of optional properties: merging and filtering work
// property by property on the mark, so "not given" and "given as empty" stay
// apart. Plain value types: copying copies the value and the mark.
// Thread safety: none of their own; share them like any value.
#include <cstddef>
#include <memory>
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

// An optional property that most records never have: while unspecified it
// costs one pointer rather than a whole T, which counts when a host's
// thousands of configurations stay in memory. It reads as the optional
// property it holds (an unspecified one when it holds none) and is set from
// one; copies copy the value.
template <class T>
class KQCSparseProperty {
public:
    KQCSparseProperty() = default;
    KQCSparseProperty(const KQCSparseProperty& other) { *this = other.optional(); }
    KQCSparseProperty(KQCSparseProperty&&) noexcept = default;
    KQCSparseProperty& operator=(const KQCSparseProperty& other)
    {
        if (this != &other)
            *this = other.optional();
        return *this;
    }
    KQCSparseProperty& operator=(KQCSparseProperty&&) noexcept = default;
    KQCSparseProperty& operator=(const KQCOptionalProperty<T>& value)
    {
        m_value.reset(value.isSpecified() ? new KQCOptionalProperty<T>(value) : nullptr);
        return *this;
    }

    const KQCOptionalProperty<T>& optional() const
    {
        static const KQCOptionalProperty<T> unspecified;
        return m_value ? *m_value : unspecified;
    }
    operator const KQCOptionalProperty<T>&() const { return optional(); }
    bool isSpecified() const { return m_value != nullptr; }
    const T& get() const { return optional().get(); }
    void set(const T& value) { *this = KQCOptionalProperty<T>(value); }
    void unset() { m_value.reset(); }

    bool operator==(const KQCSparseProperty& other) const { return optional() == other.optional(); }
    bool operator!=(const KQCSparseProperty& other) const { return !(*this == other); }

private:
    std::unique_ptr<KQCOptionalProperty<T>> m_value;
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
