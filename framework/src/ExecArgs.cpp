#include "KQC/Exec.h"

namespace KQC {

ExecutionArgs::ExecutionArgs(const ExecutionArgs& other) { *this = other; }

ExecutionArgs& ExecutionArgs::operator=(const ExecutionArgs& other)
{
    if (this == &other)
        return *this;
    std::vector<const char*> words;
    std::vector<std::unique_ptr<std::string>> copies;
    for (const char* word : other.m_words) {
        bool owned = false;
        for (const auto& copy : other.m_copies)
            owned = owned || copy->c_str() == word;
        if (owned) {
            // Owned texts must not point into the other object's storage.
            copies.emplace_back(new std::string(word));
            words.push_back(copies.back()->c_str());
        } else {
            words.push_back(word);
        }
    }
    m_words.swap(words);
    m_copies.swap(copies);
    m_argv.clear();
    return *this;
}

void ExecutionArgs::push_back(const char* text, bool copy)
{
    if (text == nullptr)
        return;
    if (copy) {
        m_copies.emplace_back(new std::string(text));
        text = m_copies.back()->c_str();
    }
    m_words.push_back(text);
    m_argv.clear();
}

void ExecutionArgs::push_back(const std::string& text) { push_back(text.c_str(), true); }

const char* const* ExecutionArgs::toArgs()
{
    m_argv = m_words;
    m_argv.push_back(nullptr);
    return m_argv.data();
}

size_t ExecutionArgs::size() const { return m_words.size(); }

std::string ExecutionArgs::toString() const
{
    std::string text;
    for (const char* word : m_words) {
        if (!text.empty())
            text += ' ';
        text += word;
    }
    return text;
}

} // namespace KQC
