#include "KQC/ErrorText.h"

#include "KQC/Error.h"

namespace KQC {
namespace {

struct CodeText {
    int code;
    const char* text;
};

const CodeText kTexts[] = {
    {KQC_ERR_NOT_INSTALLED, "required component is not installed"},
    {KQC_ERR_ACCESS_DENIED, "access denied"},
    {KQC_ERR_NOT_SUPPORTED, "operation is not supported on this platform"},
    {KQC_ERR_PROCESS_LIST, "can't list processes"},
    {KQC_ERR_NO_ENV_FOR_VEID, "no environment for the container"},
};

} // namespace

const char* resultText(int code)
{
    for (const CodeText& entry : kTexts)
        if (entry.code == code)
            return entry.text;
    return "unknown error";
}

void setResultMessage(int code, const char* detail) { setErrorMessage("%s: %s", resultText(code), detail); }

} // namespace KQC
