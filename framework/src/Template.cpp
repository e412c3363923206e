#include "KQS/Template.h"

#include "KQC/Message.h"

#include <tuple>

namespace KQS {

std::string KQSTemplate::toString() const
{
    return version.empty() ? name : name + "/" + version;
}

KQSTemplate KQSTemplate::fromString(const std::string& text)
{
    std::string::size_type slash = text.rfind('/');
    if (slash == std::string::npos)
        return KQSTemplate(text);
    return KQSTemplate(text.substr(0, slash), text.substr(slash + 1));
}

bool KQSTemplate::operator<(const KQSTemplate& other) const
{
    return std::tie(name, version) < std::tie(other.name, other.version);
}

int KQSTemplate::readFrom(KQC::KQCMessageIterator& it)
{
    if (it.getString(KQC::TAG_NAME, name) != 0)
        return -1;
    version.clear();
    it.getString(KQC::TAG_VERSION, version);
    return 0;
}

int KQSTemplate::writeTo(KQC::KQCMessageIterator& it) const
{
    it.putString(KQC::TAG_NAME, name);
    if (!version.empty())
        it.putString(KQC::TAG_VERSION, version);
    return 0;
}

} // namespace KQS
