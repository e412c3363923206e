// Any bytes as output of the package tools: the listing line parser, the
// package file-list check and the complaint table never crash and agree
// with simple facts about their input.
#include "KQSTEMLocal.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::string name;
    std::vector<std::string> versions;
    if (KQS::KQSTEMLocal::parseListLine(text, name, versions)) {
        if (name.empty())
            std::abort();
        for (const std::string& version : versions)
            if (version.empty() || version.find_first_of(" \t\n") != std::string::npos)
                std::abort();
    }
    if (KQS::KQSTEMLocal::isTemplateConfPath(text) && text.compare(0, 13, "/kq/template/") != 0)
        std::abort();
    int code = KQS::KQSTEMLocal::toolComplaint(text);
    if (code != -1 && code != -5 && code != -6 && code != -7)
        std::abort();
    return 0;
}
