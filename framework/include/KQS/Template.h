#pragma once
// Template records of the management library: a template reference, the
// package lines and versions of a template's configuration file, and one
// listed template.
// Value types; thread safety as for any value.
#include <map>
#include <string>
#include <vector>

namespace KQC {
class KQCMessageIterator;
}

namespace KQS {

// A template or package reference: name and version (empty for none).
// These are its first two text fields; a container's OS record takes them as
// its distribution and version.
// Text form: "name", or "name/version" when a version is given.
struct KQSTemplate {
    std::string name;
    std::string version;

    KQSTemplate() = default;
    explicit KQSTemplate(const std::string& name_, const std::string& version_ = "")
        : name(name_), version(version_)
    {
    }

    std::string toString() const;
    // Splits at the last "/"; a text without one is all name.
    static KQSTemplate fromString(const std::string& text);

    bool operator==(const KQSTemplate& other) const { return name == other.name && version == other.version; }
    bool operator!=(const KQSTemplate& other) const { return !(*this == other); }
    bool operator<(const KQSTemplate& other) const;
    int readFrom(KQC::KQCMessageIterator& it);
    int writeTo(KQC::KQCMessageIterator& it) const;
};

typedef std::vector<KQSTemplate> KQSTemplateList;

// One package line of a template configuration file.
struct KQSPackage : KQSTemplate {
    // False for a line the agent keeps commented out ("#<agent>: name ...").
    bool listed = true;
    // The words after the package name, in order.
    std::vector<std::string> words;
};

// The version part of a template configuration.
struct KQSPackageVersion {
    // Empty or 8 decimal digits; "00000000" stands for no version.
    std::string versionMark;
    bool baseVersion = false;
    bool cached = false;
    std::vector<KQSTemplate> compatibleSets;
    // Path of the cache archive; not carried by the file.
    std::string cacheFile;
};

// A template configuration file's content.
struct KQSTemplateConfigInfo : KQSPackageVersion {
    std::string name;
    std::string description;
    std::string basedir;
    std::map<std::string, std::string> packageManager;
    std::map<std::string, KQSPackage> packages;
    std::string osType;
    std::string extra;
    std::vector<std::string> technologies;
};

// One listed template with its versions.
struct KQSPackageInfo {
    std::string name;
    std::string displayName;
    // "os" or "app".
    std::string type;
    std::vector<KQSPackageVersion> versions;
};

} // namespace KQS
