#pragma once
// The template manager of the management library: lists the OS and
// application templates of the host or of one environment, and installs and
// removes them in an environment.
// One object serves one request; operations return 0 or a negative result
// with the thread's error message set, and throw nothing.
#include "KQC/GUID.h"
#include "KQS/Template.h"

#include <vector>

namespace KQS {

class KQSTEM {
public:
    // Which templates a listing keeps: bit 1 the OS templates, bit 2 the
    // application templates.
    enum pkgType { PKG_OS = 1, PKG_APP = 2, PKG_ALL = PKG_OS | PKG_APP };

    virtual ~KQSTEM() = default;
    // Appends the templates of the host (EID_LOCAL) or of the environment.
    virtual int ls(std::vector<KQSPackageInfo>& out, const KQC::KQCEID& eid, int type) = 0;
    virtual int add(const KQC::KQCEID& eid, const std::vector<KQSTemplate>& templates, bool force, bool jump) = 0;
    virtual int rm(const KQC::KQCEID& eid, const std::vector<KQSTemplate>& templates, bool force, bool remove) = 0;
};

} // namespace KQS
