#include "KQC/Error.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <string>
#include <thread>

TEST(ErrorTest, FormatsPrintfStyleWithTheSystemErrorTextOrFiltered)
{
    errno = ENOENT;
    KQC::setErrorMessage("open '%s' : %m", "/x");
    EXPECT_STREQ("open '/x' : No such file or directory", KQC::getErrorMessage());
    EXPECT_EQ(ENOENT, errno) << "setting the message must not disturb errno";

    KQC::setErrorMessageFiltered("tool said: %s", "bad\x1b[2Jtext\nnext\tcol\x7f");
    EXPECT_STREQ("tool said: bad?[2Jtext\nnext\tcol?", KQC::getErrorMessage()) << "control characters hidden";
}

TEST(ErrorTest, MessageMayQuoteItselfAndBeLong)
{
    KQC::setErrorMessage("inner");
    KQC::setErrorMessage("outer: %s", KQC::getErrorMessage());
    EXPECT_STREQ("outer: inner", KQC::getErrorMessage());
    std::string big(100000, 'x');
    KQC::setErrorMessage("%s!", big.c_str());
    EXPECT_EQ(big + "!", KQC::getErrorMessage());
}

TEST(ErrorTest, EachThreadHasItsOwnMessage)
{
    KQC::setErrorMessage("main");
    std::string seen;
    std::thread other([&] {
        seen = KQC::getErrorMessage();
        KQC::setErrorMessage("other");
    });
    other.join();
    EXPECT_EQ("", seen);
    EXPECT_STREQ("main", KQC::getErrorMessage());
}
