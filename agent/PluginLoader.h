#pragma once
// Loading the plug-in and calling its entry and exit points, as the host
// agent does for each client.
#include <string>

namespace kqagent {

class PluginLoader {
public:
    PluginLoader() = default;
    ~PluginLoader();  // calls the exit point if the entry point ran, then unloads
    PluginLoader(const PluginLoader&) = delete;
    PluginLoader& operator=(const PluginLoader&) = delete;

    // Loads the library and calls its entry point: 0, or -1 with `error`.
    int load(const std::string& path, std::string& error);
    // Calls the exit point (once).
    void unload();

    // The plug-in built beside this program.
    static std::string defaultPath();

private:
    void* m_handle = nullptr;
    int (*m_fini)() = nullptr;
    bool m_initialised = false;
};

} // namespace kqagent
