// Vocabulary files, which name the parameters of a platform: any text
// either reads or is refused with a message, and what reads answers
// lookups of every parameter and category it holds.
#include "FuzzHost.h"

#include "KQC/Error.h"
#include "KQC/Vocabulary.h"

#include <cstdint>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    KQC::KQCVocabulary vocabulary;
    if (vocabulary.parse(text, "fuzz") != 0) {
        kqfuzz::require(KQC::getErrorMessage()[0] != '\0', "a refused vocabulary says why");
        return 0;
    }
    for (const KQC::KQCVocParameter& parameter : vocabulary.getParameters()) {
        kqfuzz::require(vocabulary.findParameter(parameter.getId()) != nullptr, "every parameter is found");
        std::string value;
        (void)vocabulary.getValue(parameter.getId(), value);
    }
    std::vector<KQC::KQCVocParameter> found;
    vocabulary.getCategory("qos", found);
    vocabulary.getCategory("ubc", found);
    return 0;
}
