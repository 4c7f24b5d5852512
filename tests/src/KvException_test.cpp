#include "KvException.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <exception>
#include <string>
#include <type_traits>

#include "KvconException.h"
#include "KvioException.h"

namespace {

/// A KvException that can be made: the library itself throws only its derived classes.
class PlainException : public KvException {
public:
    PlainException(const char* sourceFile, int sourceLine, const std::string& message,
                   const std::string& systemMessage)
        : KvException(sourceFile, sourceLine, message, systemMessage) {}
};

std::string LastErrorOf(int number) {
    errno = number;
    return KvgetLastError();
}

TEST(KvExceptionTest, ToStringNamesEveryField) {
    PlainException error("../src/KvThing", 12, "Thing Failed", "Broken pipe");
    EXPECT_EQ(error.ToString(),
              "Exception raised! File[../src/KvThing] Line[12] Msg[Thing Failed] SysMsg[Broken pipe]");
}

TEST(KvExceptionTest, EmptyFieldsPrintAsEmptyBrackets) {
    PlainException error("", 0, "", "");
    EXPECT_EQ(error.ToString(), "Exception raised! File[] Line[0] Msg[] SysMsg[]");
}

TEST(KvExceptionTest, AccessorsAnswerTheFields) {
    PlainException error("../src/KvThing", 12, "Thing Failed", "Broken pipe");
    EXPECT_EQ(error.GetFile(), "../src/KvThing");
    EXPECT_EQ(error.GetLine(), 12);
    EXPECT_EQ(error.GetMsg(), "Thing Failed");
    EXPECT_EQ(error.GetSysMsg(), "Broken pipe");
}

TEST(KvExceptionTest, TextsOfAnyLengthAreNotCut) {
    const std::string message(20000, 'm');
    const std::string system(9000, 's');
    PlainException error("../src/KvThing", 12, message, system);
    EXPECT_EQ(error.ToString(),
              "Exception raised! File[../src/KvThing] Line[12] Msg[" + message + "] SysMsg[" + system + "]");
}

TEST(KvExceptionTest, WhatIsTheGenericStandardText) {
    const std::string generic = std::exception().what();
    EXPECT_EQ(PlainException("", 0, "Thing Failed", "").what(), generic);
    EXPECT_EQ(KvioException("host", "Thing Failed").what(), generic);
    EXPECT_EQ(KvconException(1, "Thing Failed").what(), generic);
}

TEST(KvExceptionTest, DerivedExceptionsAreCaughtByReferenceToTheRoot) {
    try {
        throw KvioException("host:25", "Thing Failed");
    } catch (KvException& error) {
        EXPECT_EQ(error.ToString(),
                  "Exception raised! IO path[host:25] File[] Line[0] Msg[Thing Failed] SysMsg[]");
    }
    EXPECT_TRUE((std::is_base_of_v<std::exception, KvException>));
}

TEST(KvExceptionTest, LastErrorDescribesTheCurrentErrno) {
    EXPECT_EQ(LastErrorOf(ENOENT), "No such file or directory");
    EXPECT_EQ(LastErrorOf(ECONNREFUSED), "Connection refused");
    EXPECT_EQ(LastErrorOf(0), "Success");
}

TEST(KvExceptionTest, LastErrorOfAnUnknownNumberNamesIt) {
    EXPECT_EQ(LastErrorOf(9999), "Unknown error 9999");
}

}  // namespace
