#pragma once
// External operators run inside a container: the parameter record that
// names the container, the executer that starts the program there with two
// pipes as its standard streams, and the function the container library
// runs in the container's context.
//
// Loading the plug-in registers the record's parser and the plug-in classes
// "kqs_extern" (a pool of operators) and "kqs_extern_single" (one operator)
// with the framework; unloading removes them.
// Thread safety: an executer is used by one thread at a time.
#include "KQC/Exec.h"
#include "KQC/ExternOp.h"
#include "KQC/Plugin.h"

#include <string>
#include <vector>

namespace KQS {

// The external program's argument vector and the container (TAG_VEID) it
// runs in. Reading needs both; writing writes the argument vector only, so
// a written record does not read back until a VEID is added to it.
class KQSPluginParamsExtern : public KQC::KQCPluginParamsExtern {
public:
    int readFrom(KQC::KQCMessageIterator& it) override;
    int writeTo(KQC::KQCMessageIterator& it) const override;
    std::string getTypeName() const override { return "plugin_params_kqs_externType"; }

    int veid = 0;
};

class KQSExternProgramExecuter : public KQC::KQCExternProgramExecuter {
public:
    // `root`: the agent's configuration root, handed to the container
    // library.
    KQSExternProgramExecuter(const std::vector<std::string>& args, int veid, const std::string& root);

    // Starts the program in the container (which must be running). 0 with
    // our ends of its standard input (`input`) and output (`output`) and
    // its pid; -1 on any failure, with no message of its own.
    int createProcess(boost::shared_ptr<KQC::KQCHandle>& input, boost::shared_ptr<KQC::KQCHandle>& output,
                      int& pid) override;

private:
    int m_veid;
    std::string m_root;
};

// What VPSExecProc needs: the descriptors that become its standard input
// and output, and the program's argument vector (null-terminated).
struct _VPSExecParams {
    int in = -1;
    int out = -1;
    const char* const* argv = nullptr;
};

// Runs in the container's new process: takes the two descriptors as its
// standard input and output, sends standard error to /dev/null (or to the
// output when /dev/null cannot be opened) and executes the program. Returns
// 1 only when the program could not be executed.
int VPSExecProc(void* params);

} // namespace KQS
