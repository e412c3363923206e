#pragma once
// Vocabularies: what the parameters of one platform and architecture are.
//
// A vocabulary has an identifier and an ordered list of parameters. Each
// parameter has an identifier, a group ("qos" for resource limits), a set of
// categories ("ubc", "qos", "network", "applicable_conf", ...) and attributes
// under tag numbers: TAG_VOC_VALUE (1307) the value (for "platform" and
// "architecture" the vocabulary's own; for UBC parameters the kernel index),
// TAG_MESSAGE_PATH (1156) where the parameter lives in a configuration
// message, TAG_ACCOUNT_TYPE (1026) an account type.
//
// Vocabulary files (one per platform/architecture, "*.voc") live in the
// folder "vocabulary" of the agent's etc folder, or, when that folder does
// not exist, in the framework's own data. Format, one entry per line, words
// split with shell quoting, "#" comments:
//   vocabulary linux-x86_64
//   parameter diskspace group=qos category=qos,applicable_conf value=...
// where an attribute is a tag name (Tags.h) or number, "=", its text.
//
// Caches: vocCache() lists every vocabulary of the folder, vocCacheLocal()
// gives the host's own (platform "linux", the machine's architecture). Both
// re-read the folder when it or one of its files changes.
// Ownership: vocabularies are shared, and never changed once loaded.
// Thread safety: the caches may be used from any thread; loaded vocabularies
// are read-only.
#include <boost/shared_ptr.hpp>

#include <map>
#include <set>
#include <string>
#include <vector>

namespace KQC {

class KQCVocParameter {
public:
    const std::string& getId() const { return m_id; }
    void setId(const std::string& id) { m_id = id; }
    const std::string& getGroup() const { return m_group; }
    void setGroup(const std::string& group) { m_group = group; }
    const std::set<std::string>& getCategories() const { return m_categories; }
    void addCategory(const std::string& category) { m_categories.insert(category); }
    bool isInCategory(const std::string& category) const { return m_categories.count(category) != 0; }

    // 0 with the attribute's text; -1 when the parameter lacks it.
    int getString(int tag, std::string& value) const;
    // 0 with the attribute as a number; -1 when it is absent or no number.
    int getInt(int tag, int& value) const;
    void setAttribute(int tag, const std::string& value) { m_attributes[tag] = value; }

private:
    std::string m_id;
    std::string m_group;
    std::set<std::string> m_categories;
    std::map<int, std::string> m_attributes;
};

class KQCVocabulary {
public:
    const std::string& getId() const { return m_id; }
    void setId(const std::string& id) { m_id = id; }
    const std::vector<KQCVocParameter>& getParameters() const { return m_parameters; }
    // Adds or replaces the parameter of that identifier.
    void addParameter(const KQCVocParameter& parameter);

    // The parameter of that identifier, nullptr when unknown.
    const KQCVocParameter* findParameter(const std::string& id) const;
    int getParameter(const std::string& id, KQCVocParameter& parameter) const;
    // A parameter's value (TAG_VOC_VALUE); -1 when there is no such
    // parameter or it has no value.
    int getValue(const std::string& id, std::string& value) const;
    // The parameters that are in every one of `categories`, in vocabulary
    // order; -1 (and nothing) when there are none.
    int getParameters(const std::set<std::string>& categories, std::vector<KQCVocParameter>& parameters) const;
    int getCategory(const std::string& category, std::vector<KQCVocParameter>& parameters) const;
    bool hasCategory(const std::string& category) const;

    // Reads a vocabulary file; -1 with the message set (naming the file and
    // line) when it cannot be read or is malformed.
    static int load(const std::string& path, KQCVocabulary& vocabulary);
    int parse(const std::string& text, const std::string& sourceName);

private:
    std::string m_id;
    std::vector<KQCVocParameter> m_parameters;
};

typedef boost::shared_ptr<KQCVocabulary> KQCVocabularyPtr;
typedef std::vector<KQCVocabularyPtr> KQCVocabularyList;

// An ordered list of vocabularies that a parser works from.
class KQCVocMap {
public:
    KQCVocMap() = default;
    // `vocabulary` first, then each vocabulary of the general cache whose
    // identifier is in `ids` (in the set's order; unknown ones are skipped).
    KQCVocMap(const KQCVocabularyPtr& vocabulary, const std::set<std::string>& ids);

    void push_back(const KQCVocabularyPtr& vocabulary);
    const KQCVocabularyList& getVocabularies() const { return m_vocabularies; }
    KQCVocabularyList::const_iterator begin() const { return m_vocabularies.begin(); }
    KQCVocabularyList::const_iterator end() const { return m_vocabularies.end(); }
    size_t size() const { return m_vocabularies.size(); }
    bool empty() const { return m_vocabularies.empty(); }

    // The first vocabulary's parameter of that identifier, nullptr if none.
    const KQCVocParameter* findParameter(const std::string& id) const;
    // The first vocabulary that has the parameter gives its value.
    int getValue(const std::string& id, std::string& value) const;
    // The parameters of a category over all vocabularies, each identifier
    // once (the first vocabulary that has it wins), in order.
    void getCategory(const std::string& category, std::vector<KQCVocParameter>& parameters) const;

private:
    KQCVocabularyList m_vocabularies;
};

class KQCVocCacheLocal {
public:
    // The host's vocabulary; empty when none is installed.
    KQCVocabularyPtr getVocabulary() const;
};

class KQCVocCache {
public:
    // Every installed vocabulary, in file-name order; never null, possibly
    // empty.
    boost::shared_ptr<const KQCVocabularyList> getList() const;
    // The vocabulary of that identifier; empty when unknown.
    KQCVocabularyPtr find(const std::string& id) const;
};

boost::shared_ptr<KQCVocCacheLocal> vocCacheLocal();
boost::shared_ptr<KQCVocCache> vocCache();

// The folder vocabularies are read from (see above).
std::string vocabularyFolder();

// Compares whole strings ignoring ASCII case: 0 when equal, else <0 or >0
// like strcmp.
int compareNoCase(const std::string& a, const std::string& b);

} // namespace KQC
