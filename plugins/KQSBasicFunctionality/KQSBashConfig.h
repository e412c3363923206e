#pragma once
// Reading and atomically rewriting the platform's shell-style configuration
// files through one of the framework's parsers.
//
// getBashConfig: 0, or -1 with "open '%s' : %s" / "parse '%s' config".
// putBashConfig: writes a temporary file beside the target and renames it
// over the target, so the target is replaced whole or not touched. With
// keepOld the old file's comments, order and unknown keys survive. A
// missing target is not an error (it is created). 0, or -1 with
// "open tmp for '%s': %s", the parser's message, or "rename '%s' -> '%s' : %s".
#include "KQSResult.h"

#include "KQC/Error.h"
#include "KQC/Files.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <string>
#include <sys/stat.h>

namespace KQS {

// getBashConfig for `name` within the open folder `dirfd` (AT_FDCWD: a
// whole path), `path` naming it in messages; `st`, when given, receives the
// status of the file that was read.
template <class Parser, class T>
int getBashConfigAt(int dirfd, const char* name, const std::string& path, Parser& parser, T& out,
                    struct ::stat* st = nullptr)
{
    // Read whole through a close-on-exec descriptor: a stream of the C++
    // library would leak its descriptor into tools that other threads start
    // meanwhile.
    std::string text;
    if (KQC::file2strAt(dirfd, name, path, text, st) != 0) {
        KQC::setErrorMessage("open '%s' : %s", path.c_str(), std::strerror(errno));
        return KQS_ERR_GENERIC;
    }
    std::istringstream in(text);
    if (parser.getConfig(in, out) != 0) {
        KQC::setErrorMessage("parse '%s' config", path.c_str());
        return KQS_ERR_GENERIC;
    }
    return 0;
}

template <class Parser, class T>
int getBashConfig(const char* path, Parser& parser, T& out)
{
    return getBashConfigAt(AT_FDCWD, path, path, parser, out);
}

template <class Parser, class T>
int putBashConfig(const char* path, Parser& parser, const T& in, bool keepOld)
{
    // A file that cannot be read is written as if new: nothing to keep.
    std::string oldText;
    const bool haveOld = KQC::file2str(path, oldText) == 0;
    if (!haveOld)
        keepOld = false;
    std::istringstream old(oldText);
    KQC::TemporaryFile temporary(path, true);
    if (!temporary.isValid()) {
        KQC::setErrorMessage("open tmp for '%s': %s", path, std::strerror(errno));
        return KQS_ERR_GENERIC;
    }
    if (parser.putConfig(in, temporary.stream(), haveOld ? &old : nullptr, keepOld) != 0)
        return KQS_ERR_GENERIC;
    // The temporary is made 0600; the tools and the host's own readers
    // expect the file to keep the mode it had (0644 when it is new).
    struct stat st;
    const mode_t mode = ::stat(path, &st) == 0 && S_ISREG(st.st_mode) ? (st.st_mode & 07777) : 0644;
    if (::fchmod(temporary.fd(), mode) != 0) {
        KQC::setErrorMessage("open tmp for '%s': %s", path, std::strerror(errno));
        return KQS_ERR_GENERIC;
    }
    // A write that failed (a full disk) shows on closing; the framework's
    // message names the temporary file, which is removed with its object.
    if (temporary.close() != 0)
        return KQS_ERR_GENERIC;
    if (KQC::renameFile(temporary.getpath(), path) != 0) {
        KQC::setErrorMessage("rename '%s' -> '%s' : %s", temporary.getpath().c_str(), path, std::strerror(errno));
        return KQS_ERR_GENERIC;
    }
    return 0;
}

} // namespace KQS
