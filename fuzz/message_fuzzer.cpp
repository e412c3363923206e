// The markup form of framework messages, as the agent's files hold it: a
// message that loads saves into a text that loads into the same message.
// Texts in the form saving writes are read by a quick reader that hands
// anything unusual to the general one; a comment after the message makes
// the quick reader give up, so loading the text with one appended must give
// the very same message: the two readers agree.
#include "FuzzHost.h"

#include "KQC/Message.h"

#include <cstdint>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    KQC::KQCMessage message;
    if (message.loadFromString(text) != 0)
        return 0;
    std::string saved;
    kqfuzz::require(message.saveToString(saved) == 0, "a loaded message saves");
    KQC::KQCMessage general;
    std::string generalSaved;
    kqfuzz::require(general.loadFromString(text + "\n<!-- general reader -->\n") == 0,
                    "what the quick reader takes, the general reader takes");
    kqfuzz::require(general.saveToString(generalSaved) == 0 && generalSaved == saved,
                    "both readers read the same message");
    KQC::KQCMessage again;
    kqfuzz::require(again.loadFromString(saved) == 0, "a saved message loads");
    std::string savedAgain;
    kqfuzz::require(again.saveToString(savedAgain) == 0, "a reloaded message saves");
    kqfuzz::require(saved == savedAgain, "saving is stable");
    return 0;
}
