// The template tools over the templates folder TEMPLATE (host settings):
// a template NAME has configuration files TEMPLATE/NAME/conf/NAME.conf.VERSION.
//   kqpkgls [-q] [VEID]       host: "NAME VERSION..." per template; for a
//                             container its OS template and the application
//                             templates installed there (key TEMPLATES)
//   kqpkgadd [--force] [--jump] [-q] VEID T...   install application templates
//                             (an OS template only with --force: it becomes
//                             the container's OS template)
//   kqpkgrm [--force] [--remove] [-q] VEID T...  remove them
//   kqpkginfo -e CONF         the words of the file's %technologies section
// A template is given as NAME or NAME/VERSION. Refusals exit 1 with the
// reason on standard error: "... is already installed", "failed
// dependencies: ...", "... is not installed", "Use -f/--force option ...".
#include "Tools.h"

#include "TransitionLock.h"

#include "KQSim/Container.h"
#include "KQSim/Host.h"
#include "KQSim/ShellConfig.h"

#include "KQC/Error.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace KQSim {
namespace {

int complain(int status, const std::string& tool, const std::string& text)
{
    std::fflush(stdout);
    std::fprintf(stderr, "%s: %s\n", tool.c_str(), text.c_str());
    return status;
}

std::vector<std::string> versionsOf(const std::string& templateDir, const std::string& name)
{
    std::vector<std::string> files, versions;
    std::string prefix = name + ".conf.";
    listDirectory(templateDir + "/" + name + "/conf", files);
    for (const std::string& file : files)
        if (file.size() > prefix.size() && file.compare(0, prefix.size(), prefix) == 0)
            versions.push_back(file.substr(prefix.size()));
    return versions;
}

// The content lines of one "%section" of a template configuration file.
std::vector<std::string> sectionLines(const std::string& path, const std::string& section)
{
    std::string text;
    std::vector<std::string> found;
    if (readFile(path, text) != 0)
        return found;
    std::istringstream lines(text);
    std::string line;
    bool inside = false;
    while (std::getline(lines, line)) {
        if (!line.empty() && line[0] == '%') {
            std::string name = line.substr(1, line.find(' ') == std::string::npos ? std::string::npos : line.find(' ') - 1);
            inside = name == section;
        } else if (inside && !line.empty() && line[0] != '#') {
            found.push_back(line);
        }
    }
    return found;
}

std::string latestConf(const std::string& templateDir, const std::string& name)
{
    std::vector<std::string> versions = versionsOf(templateDir, name);
    return versions.empty() ? "" : templateDir + "/" + name + "/conf/" + name + ".conf." + versions.back();
}

struct Context {
    SimHost host;
    HostSettings settings;
    std::string tool;
};

int listHost(const Context& context)
{
    std::vector<std::string> names;
    listDirectory(context.settings.templateDir, names);
    for (const std::string& name : names) {
        std::vector<std::string> versions = versionsOf(context.settings.templateDir, name);
        if (versions.empty())
            continue;
        std::string line = name;
        for (const std::string& version : versions)
            line += " " + version;
        std::printf("%s\n", line.c_str());
    }
    return 0;
}

int listContainer(const Context& context, int veid)
{
    ContainerFiles files;
    ShellConfig config;
    if (findContainer(context.host, context.settings, veid, files, &config) != 0)
        return complain(1, context.tool, KQC::getErrorMessage());
    std::vector<std::string> names = {config.get("OSTEMPLATE")};
    for (const std::string& name : splitWords(config.get("TEMPLATES")))
        names.push_back(name);
    for (const std::string& name : names) {
        std::vector<std::string> versions = versionsOf(context.settings.templateDir, name);
        if (!name.empty() && !versions.empty())
            std::printf("%s %s\n", name.c_str(), versions.back().c_str());
    }
    return 0;
}

struct ChangeRequest {
    bool force = false;
    bool quiet = false;
    int veid = 0;
    std::vector<std::string> templates;
};

int parseChange(const Context& context, const ToolArguments& args, const char* extraFlag, ChangeRequest& request)
{
    std::vector<std::string> positionals;
    for (size_t i = 1; i < args.size(); ++i) {
        if (args[i] == "--force" || args[i] == "-f")
            request.force = true;
        else if (args[i] == "-q" || args[i] == "--quiet")
            request.quiet = true;
        else if (args[i] != extraFlag && !args[i].empty() && args[i][0] == '-')
            return complain(2, context.tool, "invalid option " + args[i]);
        else if (args[i] != extraFlag)
            positionals.push_back(args[i]);
    }
    if (positionals.size() < 2 || !parseInt(positionals[0], request.veid))
        return complain(2, context.tool, "usage: " + context.tool + " [options] VEID TEMPLATE...");
    request.templates.assign(positionals.begin() + 1, positionals.end());
    return 0;
}

// NAME or NAME/VERSION to an installed template's name; "" when unknown.
std::string templateName(const Context& context, const std::string& text)
{
    std::string name = text.substr(0, text.find('/'));
    return versionsOf(context.settings.templateDir, name).empty() ? "" : name;
}

bool isOsTemplate(const Context& context, const std::string& name)
{
    std::vector<std::string> cached = sectionLines(latestConf(context.settings.templateDir, name), "cached");
    return !cached.empty() && cached[0] == "yes";
}

int checkAddable(const Context& context, const ChangeRequest& request, const std::string& name,
                 const ShellConfig& config)
{
    std::string conf = latestConf(context.settings.templateDir, name);
    if (isOsTemplate(context, name) && !request.force)
        return complain(1, context.tool, "template " + name + " is an OS template; Use -f/--force option to reinstall the OS");
    std::vector<std::string> installed = splitWords(config.get("TEMPLATES"));
    if (!request.force && std::find(installed.begin(), installed.end(), name) != installed.end())
        return complain(1, context.tool, "template " + name + " is already installed");
    std::vector<std::string> sets = sectionLines(conf, "compatible_sets");
    std::string os = config.get("OSTEMPLATE");
    if (!request.force && !sets.empty() && std::find(sets.begin(), sets.end(), os) == sets.end())
        return complain(1, context.tool, "failed dependencies: " + name + " does not work on " + os);
    return 0;
}

// One template added to or removed from the installed list; 0 or the exit status.
int changeOne(const Context& context, const ChangeRequest& request, ShellConfig& config, bool adding,
              const std::string& text, std::vector<std::string>& installed)
{
    std::string name = templateName(context, text);
    if (name.empty())
        return complain(1, context.tool, "template " + text + " not found");
    auto present = std::find(installed.begin(), installed.end(), name);
    if (adding) {
        if (int status = checkAddable(context, request, name, config))
            return status;
        // A forced OS template replaces the container's OS; it is not one
        // of the installed application templates.
        if (isOsTemplate(context, name))
            config.set("OSTEMPLATE", name);
        else if (present == installed.end())
            installed.push_back(name);
    } else {
        if (present == installed.end())
            return complain(1, context.tool,
                            "template " + name + " is not installed in container " + std::to_string(request.veid));
        installed.erase(present);
    }
    if (!request.quiet)
        std::printf("%s template %s %s container %d\n", adding ? "Installing" : "Removing", name.c_str(),
                    adding ? "into" : "from", request.veid);
    return 0;
}

// Saves through a layout-4 container's link, never over the link itself.
int saveConfig(const ContainerFiles& files, const ShellConfig& config)
{
    char* resolved = ::realpath(files.configPath.c_str(), nullptr);
    std::string target = resolved ? resolved : files.configPath;
    std::free(resolved);
    return config.save(target);
}

int changeTemplates(const Context& context, const ChangeRequest& request, bool adding)
{
    ContainerFiles files;
    ShellConfig config;
    if (findContainer(context.host, context.settings, request.veid, files, &config) != 0)
        return complain(1, context.tool, KQC::getErrorMessage());
    TransitionLock lock;
    int taken = lock.acquire(context.settings.lockDir, request.veid, "updating");
    if (taken == 1)
        return complain(9, context.tool, "Container already locked");
    if (taken != 0)
        return complain(1, context.tool, KQC::getErrorMessage());
    std::vector<std::string> installed = splitWords(config.get("TEMPLATES"));
    for (const std::string& text : request.templates) {
        if (int status = changeOne(context, request, config, adding, text, installed))
            return status;
        config.set("TEMPLATES", joinWords(installed));
    }
    return saveConfig(files, config) == 0 ? 0 : complain(1, context.tool, KQC::getErrorMessage());
}

int openContext(const SimHost& host, const ToolArguments& args, Context& context)
{
    context.host = host;
    context.tool = args[0];
    if (readHostSettings(host, context.settings) != 0)
        return complain(1, context.tool, KQC::getErrorMessage());
    return 0;
}

// kqpkgadd and kqpkgrm take the same request; they differ in one flag and
// in the direction of the change.
int runChange(const SimHost& host, const ToolArguments& args, const char* extraFlag, bool install)
{
    Context context;
    ChangeRequest request;
    if (int status = openContext(host, args, context))
        return status;
    if (int status = parseChange(context, args, extraFlag, request))
        return status;
    return changeTemplates(context, request, install);
}

} // namespace

int runKqpkgls(const SimHost& host, const ToolArguments& args)
{
    Context context;
    if (int status = openContext(host, args, context))
        return status;
    for (size_t i = 1; i < args.size(); ++i) {
        int veid = 0;
        if (args[i] == "-q" || args[i] == "--quiet")
            continue;
        if (!parseInt(args[i], veid))
            return complain(2, context.tool, "invalid argument " + args[i]);
        return listContainer(context, veid);
    }
    return listHost(context);
}

int runKqpkgadd(const SimHost& host, const ToolArguments& args) { return runChange(host, args, "--jump", true); }

int runKqpkgrm(const SimHost& host, const ToolArguments& args) { return runChange(host, args, "--remove", false); }

int runKqpkginfo(const SimHost& host, const ToolArguments& args)
{
    if (args.size() != 3 || args[1] != "-e")
        return complain(2, args[0], "usage: kqpkginfo -e CONFIGURATION_FILE");
    if (!pathExists(args[2]))
        return complain(1, args[0], "no such file " + args[2]);
    for (const std::string& line : sectionLines(args[2], "technologies"))
        for (const std::string& word : splitWords(line))
            std::printf("%s\n", word.c_str());
    return 0;
}

} // namespace KQSim
