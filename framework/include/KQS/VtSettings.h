#pragma once
// The host's virtualization settings, as the host settings file holds them.
//
// Every parameter of the file is kept by its lower-case name ("ve_root",
// "lockdir", ...); the named accessors give the common ones as optional
// properties: LockDir ("lockdir"), DumpDir ("dumpdir"), TemplatesDir
// ("template"), VERoot ("ve_root"), VEPrivate ("ve_private"). The paths are
// used as they stand (a simulated host writes its root into them);
// VE_ROOT and VE_PRIVATE hold the VEID variable.
// Value type; thread safety as for any value.
#include "KQC/OptionalProperty.h"

#include <map>
#include <string>

namespace KQS {

class KQSVtSettings {
public:
    // 0 with the value of the parameter (name in any case), -1 when absent.
    int getParam(const std::string& name, std::string& value) const;
    void setParam(const std::string& name, const std::string& value);
    void unsetParam(const std::string& name);
    // Every parameter by lower-case name.
    const std::map<std::string, std::string>& getParams() const { return m_params; }

    int getLockDir(KQC::KQCOptionalProperty<std::string>& value) const { return property("lockdir", value); }
    void setLockDir(const std::string& value) { setParam("lockdir", value); }
    int getDumpDir(KQC::KQCOptionalProperty<std::string>& value) const { return property("dumpdir", value); }
    void setDumpDir(const std::string& value) { setParam("dumpdir", value); }
    int getTemplatesDir(KQC::KQCOptionalProperty<std::string>& value) const { return property("template", value); }
    void setTemplatesDir(const std::string& value) { setParam("template", value); }
    int getVERoot(KQC::KQCOptionalProperty<std::string>& value) const { return property("ve_root", value); }
    void setVERoot(const std::string& value) { setParam("ve_root", value); }
    int getVEPrivate(KQC::KQCOptionalProperty<std::string>& value) const { return property("ve_private", value); }
    void setVEPrivate(const std::string& value) { setParam("ve_private", value); }

    bool operator==(const KQSVtSettings& other) const { return m_params == other.m_params; }

private:
    // Always 0; the property is unspecified when the parameter is absent.
    int property(const std::string& name, KQC::KQCOptionalProperty<std::string>& value) const;

    std::map<std::string, std::string> m_params;
};

} // namespace KQS
