#include "PluginLoader.h"

#include <climits>
#include <dlfcn.h>
#include <unistd.h>

namespace kqagent {
namespace {

const char* const kLibraryName = "libKQSBasicFunctionalityLocal.so";

std::string selfDirectory()
{
    char path[PATH_MAX];
    ssize_t n = ::readlink("/proc/self/exe", path, sizeof path - 1);
    if (n <= 0)
        return ".";
    std::string text(path, static_cast<size_t>(n));
    size_t slash = text.rfind('/');
    return slash == std::string::npos ? "." : text.substr(0, slash);
}

} // namespace

PluginLoader::~PluginLoader()
{
    unload();
    // The library stays mapped: objects it made (the factories' vtables,
    // the cache's configurations) may be released later during exit.
}

int PluginLoader::load(const std::string& path, std::string& error)
{
    m_handle = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!m_handle) {
        const char* text = ::dlerror();
        error = std::string("can't load plug-in: ") + (text ? text : path.c_str());
        return -1;
    }
    auto init = reinterpret_cast<int (*)()>(::dlsym(m_handle, "initKQSBasicFunctionalityLocal"));
    m_fini = reinterpret_cast<int (*)()>(::dlsym(m_handle, "finiKQSBasicFunctionalityLocal"));
    if (!init || !m_fini) {
        error = "'" + path + "' is not the plug-in: its entry points are missing";
        return -1;
    }
    init();
    m_initialised = true;
    return 0;
}

void PluginLoader::unload()
{
    if (m_initialised && m_fini)
        m_fini();
    m_initialised = false;
}

std::string PluginLoader::defaultPath()
{
    std::string dir = selfDirectory();
    std::string beside = dir + "/" + kLibraryName;
    if (::access(beside.c_str(), R_OK) == 0)
        return beside;
    return dir + "/../lib/" + kLibraryName;
}

} // namespace kqagent
