#include "KQSAuthMVELocal.h"

#include "KQSEnvMLocal.h"
#include "KQSResult.h"

#include "KQC/Boundary.h"
#include "KQC/Error.h"
#include "KQC/ErrorText.h"
#include "KQC/Exec.h"
#include "KQC/Tags.h"
#include "KQC/Vocabulary.h"

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>

namespace KQS {
namespace {

// The realm's id: a fixed GUID of this plug-in.
const char* const kRealmId = "{6b1d3f0e-52c4-4a8e-9d27-c0a5e3b17f41}";

const char* const kAdminParameter = "morvoadmin";
const char* const kAdminCategory = "kqsbasicfunctionality";
const char* const kAdminAccountType = "morvoadmin";

// Principal types of the local SIDs this module hands out.
enum Principal { PRINCIPAL_ROOT = 1, PRINCIPAL_USERS = 2, PRINCIPAL_ADMIN = 3 };

// Well-known SIDs given as extra groups.
const int kAdministratorsSid = 9;
const int kPanelAdministratorsSid = 10;

// Exit codes of the authentication tool.
const int kToolRefused = 3;
const int kToolNoPanel = 7;

// The control-panel administrator's vocabulary entry; -1 when the host's
// vocabulary cannot be read or lacks it.
int findAdminParameter(KQC::KQCVocParameter& parameter)
{
    KQC::KQCVocabularyPtr vocabulary = KQC::vocCacheLocal()->getVocabulary();
    if (!vocabulary) {
        KQC::setErrorMessage("can't read the host's vocabulary");
        return -1;
    }
    std::vector<KQC::KQCVocParameter> parameters;
    if (vocabulary->getCategory(kAdminCategory, parameters) == 0)
        for (const KQC::KQCVocParameter& candidate : parameters)
            if (candidate.getId() == kAdminParameter) {
                parameter = candidate;
                return 0;
            }
    KQC::setErrorMessage("no '%s' parameter in the host's vocabulary", kAdminParameter);
    return -1;
}

// The VEID of the environment named by `eid`; 0 (the host) when it names
// none.
int veidOf(const KQC::KQCEID& eid)
{
    int veid = 0;
    KQSEnvMLocal envM{KQC::KQCAccessProvider()};
    if (envM.findByEid(eid, &veid) != 0)
        return 0;
    return veid;
}

int refuse(const char* why)
{
    KQC::setErrorMessage("%s", why);
    return KQS_ERR_AUTH_REFUSED;
}

// Runs the tool with the password as one line on its standard input.
// The tool's wait status, or -1 when it could not be run at all.
int runTool(const KQC::ExecutionArgs& args, const std::string& password)
{
    KQC::ExecutionArgs argv(args);
    KQC::HWExec exec;
    exec.setInput(password + "\n");
    int status = exec.exec(0, argv.toArgs());
    exec.clearInput();
    return status;
}

bool exitedWith(int status, int code) { return status >= 0 && WIFEXITED(status) && WEXITSTATUS(status) == code; }

// The tool's answer as a result: 0, -2 or -7.
int toolResult(int status)
{
    if (status < 0) {
        // The executor's message says why the tool did not run.
        return KQS_ERR_AUTH_UNAVAILABLE;
    }
    if (status == 0)
        return KQS_OK;
    if (exitedWith(status, kToolNoPanel)) {
        KQC::setResultMessage(KQC::KQC_ERR_NOT_INSTALLED, "morvo not installed");
        return KQS_ERR_AUTH_UNAVAILABLE;
    }
    if (exitedWith(status, kToolRefused))
        return refuse("invalid credentials");
    return KQS_ERR_AUTH_REFUSED;
}

void fillToken(KQC::KQCToken& token, int principal, const KQC::KQCEID& eid)
{
    token.user = KQC::KQCLocalSID(0, principal, eid);
    token.groups.clear();
    switch (principal) {
    case PRINCIPAL_ROOT:
        token.groups.push_back(KQC::KQCLocalSID(0, PRINCIPAL_USERS, eid));
        token.groups.push_back(KQC::KQCSID::createWellKnownSID(kAdministratorsSid));
        break;
    case PRINCIPAL_ADMIN:
        token.groups.push_back(KQC::KQCLocalSID(0, PRINCIPAL_USERS, eid));
        token.groups.push_back(KQC::KQCSID::createWellKnownSID(kPanelAdministratorsSid));
        break;
    default:
        // An ordinary user of group 0: the administrators' group and itself.
        token.groups.push_back(KQC::KQCSID::createWellKnownSID(kAdministratorsSid));
        token.groups.push_back(token.user);
        break;
    }
}

// The environment check shared by getAuthName and createToken.
int checkSidDomain(const KQC::KQCSID& sid)
{
    if (!sid.isLocal() || veidOf(sid.eid()) == 0)
        return refuse("invalid domain");
    return KQS_OK;
}

} // namespace

KQSAuthMVELocal::KQSAuthMVELocal(const KQC::KQCAccessProvider& access) : m_access(access) {}

const KQC::KQCRealmList& KQSAuthMVELocal::getWellKnownRealms()
{
    static const KQC::KQCRealmList realms = [] {
        KQC::KQCRealm realm;
        realm.id.fromString(kRealmId);
        realm.type = realmType;
        realm.name = "Corvantis Container";
        realm.flag = true;
        return KQC::KQCRealmList{realm};
    }();
    return realms;
}

int KQSAuthMVELocal::authenticate(KQC::KQCToken* token, const KQC::KQCAuthName& name, const std::string& password)
{
    if (!token) {
        std::fprintf(stderr, "KQSAuthMVELocal::authenticate: Assertion `pToken' failed.\n");
        std::abort();
    }
    return KQC::guardedCall("authenticate", [&] {
        KQC::KQCEID eid;
        int veid = 0;
        if (!name.domain.empty() && eid.fromString(name.domain.c_str()) == 0)
            veid = veidOf(eid);

        std::string accountType;
        KQC::KQCVocParameter admin;
        std::string adminLogin;
        if (findAdminParameter(admin) == 0 && admin.getString(KQC::TAG_VOC_VALUE, adminLogin) == 0
            && !adminLogin.empty() && adminLogin == name.name)
            accountType = kAdminAccountType;
        // Host system users are someone else's business.
        if (veid == 0 && (accountType.empty() || accountType == "system"))
            return refuse("invalid domain");

        KQC::ExecutionArgs args;
        args.push_back("kqauth");
        if (!accountType.empty()) {
            args.push_back("-t");
            args.push_back(accountType);
        }
        args.push_back(std::to_string(veid));
        args.push_back(name.name);
        int rc = toolResult(runTool(args, password));
        if (rc != KQS_OK)
            return rc;

        if (name.name == "root") {
            fillToken(*token, PRINCIPAL_ROOT, eid);
        } else if (accountType == kAdminAccountType) {
            fillToken(*token, PRINCIPAL_ADMIN, eid);
        } else {
            // Anyone else is let in only as a member of group 0.
            KQC::ExecutionArgs group;
            for (const char* word : {"kqauth", "-g", "0"})
                group.push_back(word);
            group.push_back(std::to_string(veid));
            group.push_back(name.name);
            if (runTool(group, password) != 0)
                return refuse("invalid credentials");
            fillToken(*token, PRINCIPAL_USERS, eid);
        }
        return static_cast<int>(KQS_OK);
    });
}

int KQSAuthMVELocal::getAuthName(KQC::KQCAuthName* name, KQC::KQCAuthNameType* type, const KQC::KQCSID& sid,
                                 const KQC::KQCGUID*)
{
    if (!name || !type) {
        std::fprintf(stderr, "KQSAuthMVELocal::getAuthName: Assertion `%s' failed.\n", name ? "pType" : "pOut");
        std::abort();
    }
    return KQC::guardedCall("getAuthName", [&] {
        int rc = checkSidDomain(sid);
        if (rc != KQS_OK)
            return rc;
        if (sid.number() == PRINCIPAL_ROOT) {
            name->name = "root";
            name->domain = "root";
            return static_cast<int>(KQS_OK);
        }
        if (sid.number() != PRINCIPAL_ADMIN)
            return refuse("invalid sid");
        KQC::KQCVocParameter admin;
        if (findAdminParameter(admin) != 0)
            return static_cast<int>(KQS_ERR_AUTH_UNAVAILABLE);
        std::string login, accountType;
        admin.getString(KQC::TAG_VOC_VALUE, login);
        admin.getString(KQC::TAG_ACCOUNT_TYPE, accountType);
        name->name = login;
        *type = accountType;
        return static_cast<int>(KQS_OK);
    });
}

int KQSAuthMVELocal::createToken(KQC::KQCToken* token, const KQC::KQCSID& sid)
{
    if (!token) {
        std::fprintf(stderr, "KQSAuthMVELocal::createToken: Assertion `pToken' failed.\n");
        std::abort();
    }
    return KQC::guardedCall("createToken", [&] {
        int rc = checkSidDomain(sid);
        if (rc != KQS_OK)
            return rc;
        if (sid.number() != PRINCIPAL_ROOT && sid.number() != PRINCIPAL_ADMIN)
            return refuse("invalid sid");
        fillToken(*token, sid.number(), sid.eid());
        return static_cast<int>(KQS_OK);
    });
}

} // namespace KQS
