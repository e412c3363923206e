#include "HostFiles.h"

#include "KQSim/ShellConfig.h"

namespace KQSim {

const char* const kDefaultOsTemplate = "simos-9-x86_64";

namespace {

// VE_ROOT and VE_PRIVATE keep "$VEID" unexpanded, as the platform writes
// them: the tools put the VEID in.
std::string perContainerPath(const std::string& root, const std::string& folder)
{
    std::string quoted = shellQuote(root + folder);
    quoted.pop_back();
    return quoted + "$VEID\"";
}

} // namespace

std::string hostSettingsText(const std::string& root, bool ipv6)
{
    return "## Host settings of the simulated container platform\n"
           "VIRTUALIZATION=\"yes\"\n"
           "LOCKDIR=" + shellQuote(root + "/kq/lock") + "\n"
           "DUMPDIR=" + shellQuote(root + "/kq/dump") + "\n"
           "TEMPLATE=" + shellQuote(root + "/kq/template") + "\n"
           "VE_ROOT=" + perContainerPath(root, "/kq/root/") + "\n"
           "VE_PRIVATE=" + perContainerPath(root, "/kq/private/") + "\n"
           "CONFIGFILE=\"basic\"\n"
           "DEF_OSTEMPLATE=\"" + std::string(kDefaultOsTemplate) + "\"\n"
           "\n"
           "## Defaults for containers\n"
           "ONBOOT=\"no\"\n"
           "NAMESERVER=\"192.0.2.53\"\n"
           "SEARCHDOMAIN=\"sim.test\"\n"
           "DISKSPACE=\"1048576:1153434\"\n"
           "DISKINODES=\"200000:220000\"\n"
           "QUOTATIME=\"0\"\n"
           "IPV6=\"" + std::string(ipv6 ? "yes" : "no") + "\"\n";
}

std::string basicSampleText()
{
    return "# Basic container sample of the simulated host\n"
           "ONBOOT=\"no\"\n"
           "OSTEMPLATE=\"" + std::string(kDefaultOsTemplate) + "\"\n"
           "DISKSPACE=\"2097152:2306867\"\n"
           "DISKINODES=\"400000:440000\"\n"
           "QUOTATIME=\"0\"\n"
           "CPUUNITS=\"1000\"\n"
           "NAMESERVER=\"192.0.2.53\"\n";
}

std::string osReleaseText()
{
    return "NAME=\"Simulated Linux\"\n"
           "VERSION=\"9\"\n"
           "ID=simlinux\n"
           "VERSION_ID=\"9\"\n"
           "PRETTY_NAME=\"Simulated Linux 9\"\n";
}

// The container product's package list: IPv6 inside containers comes with
// releases after 4.6 (or 4.6 builds after 205).
std::string packingListText(bool ipv6)
{
    return std::string("corvantis-release-") + (ipv6 ? "4.7.0-310" : "4.6.0-120") + "\n";
}

std::string cpuInfoText()
{
    return "processor\t: 0\n"
           "vendor_id\t: SimulatedCPU\n"
           "model name\t: Simulated processor\n"
           "cpu MHz\t\t: 1000.000\n"
           "\n";
}

std::string partitionsText()
{
    return "major minor  #blocks  name\n"
           "\n"
           "   8        0   20971520 sda\n"
           "   8        1   20970496 sda1\n"
           "   8       16   10485760 sdb\n"
           "   8       17   10484736 sdb1\n";
}

std::string fileSystemsText()
{
    return "nodev\tsysfs\n"
           "nodev\tproc\n"
           "nodev\ttmpfs\n"
           "\text3\n"
           "\text4\n"
           "\txfs\n";
}

std::vector<TemplateFile> templateFiles()
{
    TemplateFile os{kDefaultOsTemplate, "20260101", true,
                    "%name\n"
                    "Simulated OS 9 (x86_64)\n"
                    "\n"
                    "%description\n"
                    "Minimal operating system of the simulated host.\n"
                    "\n"
                    "%cached\n"
                    "yes\n"
                    "\n"
                    "%basedir\n"
                    "simos-9-x86_64\n"
                    "\n"
                    "%base_version 20260101\n"
                    "base-files\n"
                    "bash 5.2\n"
                    "coreutils 9.1\n"
                    "\n"
                    "%technologies\n"
                    "x86_64 nptl\n"
                    "\n"
                    "%packageManager\n"
                    "ARCH=\"x86_64\"""\n"
                    "PKGMAN=\"dpkg\"\n"
                    "\n"};
    TemplateFile app{"webstack", "20260101", false,
                     "%name\n"
                     "Web stack\n"
                     "\n"
                     "%description\n"
                     "Web server with its scripting language.\n"
                     "\n"
                     "%cached\n"
                     "no\n"
                     "\n"
                     "%basedir\n"
                     "webstack\n"
                     "\n"
                     "%version 20260101\n"
                     "httpd\n"
                     "php 8.2\n"
                     "\n"
                     "%compatible_sets\n"
                     "simos-9-x86_64\n"
                     "\n"
                     "%packageManager\n"
                     "PKGMAN=\"dpkg\"\n"
                     "\n"};
    return {os, app};
}

std::string emptyCacheArchive()
{
    static const unsigned char kGzip[] = {0x1f, 0x8b, 0x08, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x03,
                                          0x03, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00};
    return std::string(reinterpret_cast<const char*>(kGzip), sizeof kGzip);
}

} // namespace KQSim
