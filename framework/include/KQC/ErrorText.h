#pragma once
// Texts of the framework's result codes, for messages that report a code
// together with what went wrong ("<code's text>: <detail>").
// Thread safety: the table is constant.
namespace KQC {

// A component the request needs is not installed on the host or in the
// environment (a control panel, a tool).
constexpr int KQC_ERR_NOT_INSTALLED = 405;

// The text of a framework result code; "unknown error" for codes the table
// does not know. Never null.
const char* resultText(int code);

// Sets the thread's error message to the code's text followed by ": " and
// the detail.
void setResultMessage(int code, const char* detail);

} // namespace KQC
