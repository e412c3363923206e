#pragma once
// The texts of the files kqsim init writes.
#include <string>
#include <vector>

namespace KQSim {

// The template of the host's OS template; containers get it by default.
extern const char* const kDefaultOsTemplate;

std::string hostSettingsText(const std::string& root, bool ipv6);
std::string basicSampleText();
std::string osReleaseText();
std::string packingListText(bool ipv6);
std::string cpuInfoText();
// The host's block devices (sda, sdb and their first partitions) and the
// file-system types its kernel knows, as /proc shows them.
std::string partitionsText();
std::string fileSystemsText();

struct TemplateFile {
    std::string name;
    std::string version;
    bool cached;
    std::string text;
};
std::vector<TemplateFile> templateFiles();
// A valid gzip stream holding nothing, as an OS template's cache file.
std::string emptyCacheArchive();

} // namespace KQSim
