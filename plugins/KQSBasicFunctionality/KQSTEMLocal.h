#pragma once
// The template manager of this host. It lists the templates known on the
// host or installed in one container, installs and removes templates in a
// container, and tells whether a package file is a template package; all of
// it through the platform's package tools (kqpkgls, kqpkgadd, kqpkgrm) and
// the package query tool (rpm).
//
// One object serves one request and carries its access provider: the tools'
// output lines reach the client as progress. Operations return 0 or a
// KQSResult template code with the thread's message set; none throws.
#include "KQC/Request.h"
#include "KQS/TEM.h"

#include <string>
#include <vector>

namespace KQS {

class KQSTEMLocal : public KQC::KQCRequestModificatorLocal<KQSTEM> {
public:
    explicit KQSTEMLocal(const KQC::KQCAccessProvider& access);

    // Appends the templates the listing tool reports, each with the versions
    // listed and the type and display name of its lowest version, when the
    // filter selects that type. A filter of 0 runs nothing. Records appended
    // before a failing line stay. 0, -1 (unknown environment), -3 (the tool
    // cannot run or fails) or -51 (a template without a readable
    // configuration).
    int ls(std::vector<KQSPackageInfo>& out, const KQC::KQCEID& eid, int type) override;
    // kqpkgadd [--force] [--jump] -q VEID T...: 0, -5, -6, -7 (from the
    // tool's complaint), else -22 (an unknown environment included, with
    // its own message).
    int add(const KQC::KQCEID& eid, const std::vector<KQSTemplate>& templates, bool force, bool jump) override;
    // kqpkgrm [--force] [--remove] -q VEID T...: as add, -23 otherwise.
    int rm(const KQC::KQCEID& eid, const std::vector<KQSTemplate>& templates, bool force, bool remove) override;

    // Runs `tool` with `options` (null-terminated), the VEID and the
    // templates: 0, -1 (unknown environment, or an unrecognised complaint)
    // or the code of the first known complaint in the tool's error output.
    int operateTemplate(const char* tool, const KQC::KQCEID& eid, const std::vector<KQSTemplate>& templates,
                        const char* const* options);

    // 0 when the package file lists a file under /kq/template/NAME/conf/;
    // -27 when it does not, -28 when the query tool cannot run.
    static int isStandardRPM(const std::string& path);

    // The parsers of the tools' output, kept apart to be tested and fuzzed
    // on their own.
    // A listing line: the template name, then its version marks. False for
    // a line without words.
    static bool parseListLine(const std::string& line, std::string& name, std::vector<std::string>& versions);
    // One path of a package's file list: /kq/template/NAME/conf/... with a
    // non-empty NAME.
    static bool isTemplateConfPath(const std::string& path);
    // The result of an installation tool's error output: -5, -6, -7 or -1.
    static int toolComplaint(const std::string& errorOutput);
};

} // namespace KQS
