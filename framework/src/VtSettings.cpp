#include "KQS/VtSettings.h"

#include "TextHelpers.h"

namespace KQS {

using KQC::lowerCase;

int KQSVtSettings::getParam(const std::string& name, std::string& value) const
{
    std::map<std::string, std::string>::const_iterator found = m_params.find(lowerCase(name));
    if (found == m_params.end())
        return -1;
    value = found->second;
    return 0;
}

void KQSVtSettings::setParam(const std::string& name, const std::string& value) { m_params[lowerCase(name)] = value; }

void KQSVtSettings::unsetParam(const std::string& name) { m_params.erase(lowerCase(name)); }

int KQSVtSettings::property(const std::string& name, KQC::KQCOptionalProperty<std::string>& value) const
{
    std::string text;
    if (getParam(name, text) == 0)
        value.set(text);
    else
        value.unset();
    return 0;
}

} // namespace KQS
