#pragma once
// A template's configuration file: its model, the line parser, the checks,
// the writer, and where the file lives in the host's templates folder.
//
// The file is line-oriented. A line whose first byte is "%" opens a section
// ("%name", "%version 20260101", ...); other lines belong to the section
// last opened and are read according to it. Lines before the first known
// section, and in sections this class does not model, are ignored; such
// sections are therefore lost when the file is rewritten.
//
// Results: 0, or a KQSResult template code with the thread's message set
// (the "cannot open" and "no name" codes carry no message of their own).
// Thread safety: records are values; the section table is built before
// main, the templates folder is cached process-wide on first success.
#include "KQS/Template.h"

#include <iosfwd>
#include <string>
#include <vector>

namespace KQS {

class KQSTEMConfig : public KQSTemplateConfigInfo {
public:
    KQSTEMConfig();
    explicit KQSTEMConfig(const KQSTemplateConfigInfo& info);

    // Reads lines of at most kMaxLineLength bytes until the input ends, a
    // line does not fit (then as if the input had ended there) or a line
    // fails; then the validity check decides. A failing parse leaves the
    // record filled with what came before the failing line.
    int parse(std::istream& input);
    // One line (without its newline); `state` is the open section's number,
    // changed by header lines. The line may be modified.
    int setConfParameter(int* state, char* line);
    int isValid() const;

    // Writes the file's text; always 0.
    int construct(std::ostream& output) const;
    int printSectionSimple(std::ostream& output, const char* section, const std::string& value) const;
    int printSectionSets(std::ostream& output, const char* section, const std::vector<KQSTemplate>& sets) const;
    int printSectionPackages(std::ostream& output) const;
    int printSectionPkgManager(std::ostream& output) const;

    // The file at `path`; KQS_TEM_ERR_OPEN when it cannot be read.
    int read(const std::string& path);
    // The configuration file of a template's version.
    int read(const std::string& name, const std::string& version);
    int readFromStr(const std::string& text);
    // The whole metadata file of a template's version, unparsed.
    static int readDwexConfig(const std::string& name, const std::string& version, std::string& out);
    // Whether the version's configuration file exists (false when no path).
    static bool isExisted(const std::string& name, const std::string& version);
    // Appends the words the package information tool prints for the
    // version's configuration file to `technologies`; the tool's wait status
    // (0 when it succeeded), or the path's error.
    int getTechnologies(const std::string& name, const std::string& version);

    // Rewrites this record's file. The file's identity (cached, basedir,
    // version) wins over this record's, and the record may only keep,
    // drop or (un)comment the file's packages, never add one. The file is
    // replaced whole by rename, or left as it was.
    int set();

    // This record's own file (basedir, version mark).
    int constructConfPath(std::string& path) const;
    // TEMPLATES/NAME/conf/NAME.conf.VERSION, or ".xml." for the metadata
    // file; the version "00000000" when none is given.
    static int constructConfPath(const std::string& name, const std::string& version, std::string& path,
                                 int metadata);

    // Longest line the parser takes, without its newline.
    static const size_t kMaxLineLength = 8191;
    // The text that marks a package the agent keeps commented out.
    static const char kAgentPrefix[];
};

// The host's templates folder (TEMPLATE of the host settings), cached for
// the life of the process once read. 0, or KQS_TEM_ERR_NO_FOLDER.
int getKQTemplatesFolder(std::string& folder);

} // namespace KQS
