#include "KQSExternProgramExecuter.h"

#include "KQSBasicFunctionalityCommon.h"

#include "KQC/Error.h"
#include "KQC/Tags.h"
#include "kqctl/kqctl.h"

#include <fcntl.h>
#include <unistd.h>

namespace KQS {

// The plug-in classes of external operators: each makes its accesser over
// a factory whose executer runs the record's program in the record's
// container.
template <class Accesser>
class KQSExternPluginFactory : public KQC::KQCExternOpFactory {
public:
    KQSExternPluginFactory(const std::string& name, const KQSPluginParamsExtern& params)
        : KQC::KQCExternOpFactory(name, 10, 10, 20, 4), m_args(params.args), m_veid(params.veid)
    {
    }

    boost::shared_ptr<KQC::KQCExternProgramExecuter> createExecuter() const override
    {
        return boost::shared_ptr<KQC::KQCExternProgramExecuter>(
            new KQSExternProgramExecuter(m_args, m_veid, KQC::ConfigAgentRoot));
    }

    static const char* className();

    static boost::shared_ptr<KQC::KQCPluginPrototype> createInstance(const KQC::KQCPluginParams& params)
    {
        const KQSPluginParamsExtern* own = dynamic_cast<const KQSPluginParamsExtern*>(&params);
        if (!own) {
            KQC::setErrorMessage("%s: the parameters are not of type '%s'", className(),
                                 KQSPluginParamsExtern().getTypeName().c_str());
            return boost::shared_ptr<KQC::KQCPluginPrototype>();
        }
        boost::shared_ptr<KQC::KQCExternOpFactory> factory(new KQSExternPluginFactory<Accesser>(className(), *own));
        return boost::shared_ptr<KQC::KQCPluginPrototype>(new Accesser(factory));
    }

private:
    std::vector<std::string> m_args;
    int m_veid;
};

template <>
const char* KQSExternPluginFactory<KQC::KQCAccesserPoolPrototype>::className()
{
    return "kqs_extern";
}

template <>
const char* KQSExternPluginFactory<KQC::KQCAccesserSinglePrototype>::className()
{
    return "kqs_extern_single";
}

namespace {

const KQC::KQCDerivedParserFactoryT<KQC::KQCPluginParams, KQSPluginParamsExtern> factoryKQSPluginParamsExtern;

// Registers the two classes while the plug-in is loaded. Only what this
// object registered is removed again: a second copy of the plug-in in the
// same process must not take the first copy's classes away.
class ExternClassesRegistration {
public:
    ExternClassesRegistration()
    {
        add(KQSExternPluginFactory<KQC::KQCAccesserPoolPrototype>::className(),
            KQSExternPluginFactory<KQC::KQCAccesserPoolPrototype>::createInstance);
        add(KQSExternPluginFactory<KQC::KQCAccesserSinglePrototype>::className(),
            KQSExternPluginFactory<KQC::KQCAccesserSinglePrototype>::createInstance);
    }
    ~ExternClassesRegistration()
    {
        for (auto it = m_names.rbegin(); it != m_names.rend(); ++it)
            KQC::getPluginFactory()->unregisterClass(*it);
    }

private:
    void add(const char* name, KQC::KQCPluginFactory::Creator creator)
    {
        if (KQC::getPluginFactory()->registerClass(name, creator) == 0)
            m_names.push_back(name);
    }

    std::vector<std::string> m_names;
};

const ExternClassesRegistration registration;

// Closes a descriptor we handed to the child's side.
void closeQuietly(int fd)
{
    if (fd >= 0)
        ::close(fd);
}

// A descriptor of 0, 1 or 2 would be overwritten when the child sets up its
// standard streams: duplicate it until the copy lands above 2. The low
// copies made on the way are closed again.
int liftAboveStandardStreams(int fd)
{
    int lows[3];
    int count = 0;
    while (fd >= 0 && fd <= 2) {
        lows[count++] = fd;
        fd = ::dup(fd);
    }
    for (int i = 0; i < count; ++i)
        ::close(lows[i]);
    return fd;
}

int clearCloseOnExec(int fd)
{
    int flags = ::fcntl(fd, F_GETFD);
    return flags < 0 ? -1 : ::fcntl(fd, F_SETFD, flags & ~FD_CLOEXEC);
}

} // namespace

int KQSPluginParamsExtern::readFrom(KQC::KQCMessageIterator& it)
{
    if (KQC::KQCPluginParamsExtern::readFrom(it) != 0)
        return -1;
    if (it.getInt(KQC::TAG_VEID, veid) != 0) {
        KQC::setErrorMessage("the external program's parameters name no container");
        return -1;
    }
    return 0;
}

int KQSPluginParamsExtern::writeTo(KQC::KQCMessageIterator& it) const { return KQC::KQCPluginParamsExtern::writeTo(it); }

KQSExternProgramExecuter::KQSExternProgramExecuter(const std::vector<std::string>& args, int veid,
                                                   const std::string& root)
    : KQC::KQCExternProgramExecuter(args), m_veid(veid), m_root(root)
{
}

int KQSExternProgramExecuter::createProcess(boost::shared_ptr<KQC::KQCHandle>& input,
                                            boost::shared_ptr<KQC::KQCHandle>& output, int& pid)
{
    if (m_args.empty())
        return -1;
    KQC::ExecutionArgs args;
    for (const std::string& word : m_args)
        args.push_back(word);

    boost::shared_ptr<KQC::KQCHandle> childIn, ourIn, ourOut, childOut;
    if (KQC::KQCIOPipePrototype::createPipe(childIn, ourIn) != 0
        || KQC::KQCIOPipePrototype::createPipe(ourOut, childOut) != 0)
        return -1;
    // The child's ends must survive into the program; ours must not, or the
    // program would hold its own input open and never see its end.
    if (clearCloseOnExec(childIn->get()) != 0 || clearCloseOnExec(childOut->get()) != 0)
        return -1;
    if (kqctl_open() < 0)
        return -1;

    _VPSExecParams params;
    params.in = liftAboveStandardStreams(childIn->release());
    params.out = liftAboveStandardStreams(childOut->release());
    params.argv = args.toArgs();
    if (params.in < 0 || params.out < 0) {
        closeQuietly(params.in);
        closeQuietly(params.out);
        return -1;
    }
    int error = 0;
    pid_t child = kqctl_env_exec_fn_async(m_veid, m_root.c_str(), VPSExecProc, &params, params.in, params.out, 0, 0,
                                          &error);
    // The child has its own copies now (or there is no child).
    closeQuietly(params.in);
    closeQuietly(params.out);
    if (child < 0)
        return -1;
    pid = child;
    input = ourIn;
    output = ourOut;
    return 0;
}

int VPSExecProc(void* data)
{
    const _VPSExecParams* params = static_cast<const _VPSExecParams*>(data);
    ::dup2(params->in, 0);
    ::dup2(params->out, 1);
    ::close(params->in);
    ::close(params->out);
    int null = ::open("/dev/null", O_WRONLY);
    if (null < 0) {
        ::dup2(1, 2);
    } else if (null != 2) {
        ::dup2(null, 2);
        ::close(null);
    }
    ::execvp(params->argv[0], const_cast<char* const*>(params->argv));
    return 1;
}

} // namespace KQS
