#include "KvsysUtility.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <type_traits>

#include "TempDir.h"
#include "src/ProcessDoubles.h"

namespace {

using kvtest::ContentOf;
using kvtest::FileExists;

/// The first place of PATH has an "ifconfig" that lists what the test says and leaves its arguments as a mark.
class KvsysUtilityTest : public ::testing::Test {
protected:
    KvsysUtilityTest() {
        const std::string script = dir.write(
            "ifconfig", "#!/bin/sh\necho \"$@\" > '" + mark + "'\ncat '" + dir.file("listing") + "'\n");
        chmod(script.c_str(), 0700);
        setenv("PATH", (dir.path() + ":" + path).c_str(), 1);
        List("eth0: flags=4163<UP>  mtu 1500\n        inet 10.0.0.1  netmask 255.0.0.0\n");
    }
    ~KvsysUtilityTest() override { setenv("PATH", path.c_str(), 1); }

    void List(const std::string& listing) { dir.write("listing", listing); }

    const std::string path = std::getenv("PATH") == nullptr ? "/usr/bin:/bin" : std::getenv("PATH");
    kvtest::TempDir dir;
    const std::string mark = dir.file("mark");
};

TEST_F(KvsysUtilityTest, AnAddressOfAnInterfaceIsFound) {
    EXPECT_TRUE(KvsysUtility::VerifyIP("10.0.0.1"));
}

TEST_F(KvsysUtilityTest, AnAddressOfNoInterfaceIsNotFound) {
    EXPECT_FALSE(KvsysUtility::VerifyIP("10.0.0.2"));
}

TEST_F(KvsysUtilityTest, TheBeginningOfALongerAddressIsNotFound) {
    List("        inet 10.0.0.12  netmask 255.0.0.0\n");
    EXPECT_FALSE(KvsysUtility::VerifyIP("10.0.0.1"));
    EXPECT_TRUE(KvsysUtility::VerifyIP("10.0.0.12"));
}

TEST_F(KvsysUtilityTest, AnAddressAtTheEndOfALineIsNotFound) {
    List("        inet 10.0.0.1\n");
    EXPECT_FALSE(KvsysUtility::VerifyIP("10.0.0.1"));
}

TEST_F(KvsysUtilityTest, AnAddressThatIsListedMoreThanOnceIsFound) {
    List("inet 10.0.0.1 \ninet 10.0.0.1 \n");
    EXPECT_TRUE(KvsysUtility::VerifyIP("10.0.0.1"));
}

TEST_F(KvsysUtilityTest, AllInterfacesAreListed) {
    KvsysUtility::VerifyIP("10.0.0.1");
    EXPECT_EQ(ContentOf(mark), "-a\n");
}

TEST_F(KvsysUtilityTest, AnAddressOf15CharactersIsLookedFor) {
    List("inet 192.168.100.200 \n");
    EXPECT_TRUE(KvsysUtility::VerifyIP("192.168.100.200"));
}

TEST_F(KvsysUtilityTest, ATextOf16CharactersAnswersFalseWithoutACommand) {
    List("inet 1192.168.100.200 \n");
    EXPECT_FALSE(KvsysUtility::VerifyIP("1192.168.100.200"));
    EXPECT_FALSE(FileExists(mark));
}

TEST_F(KvsysUtilityTest, AnEmptyTextAnswersFalseWithoutACommand) {
    EXPECT_FALSE(KvsysUtility::VerifyIP(""));
    EXPECT_FALSE(FileExists(mark));
}

TEST_F(KvsysUtilityTest, AnEmptyListingAnswersFalse) {
    List("");
    EXPECT_FALSE(KvsysUtility::VerifyIP("10.0.0.1"));
    EXPECT_TRUE(FileExists(mark));
}

TEST_F(KvsysUtilityTest, TheTextIsAPatternThatMayBeginAnywhere) {
    EXPECT_TRUE(KvsysUtility::VerifyIP("0.0.1"));
    EXPECT_TRUE(KvsysUtility::VerifyIP("10.0.0.."));
    EXPECT_TRUE(KvsysUtility::VerifyIP("eth0:"));
    EXPECT_TRUE(KvsysUtility::VerifyIP("inet"));
}

TEST_F(KvsysUtilityTest, LinesWithTheWordGrepAreLeftOut) {
    List("grep0: inet 10.0.0.1 \n");
    EXPECT_FALSE(KvsysUtility::VerifyIP("10.0.0.1"));
}

TEST_F(KvsysUtilityTest, TheDestructorIsItsOnlyVirtualOperation) {
    EXPECT_TRUE(std::has_virtual_destructor_v<KvsysUtility>);
    EXPECT_EQ(sizeof(KvsysUtility), sizeof(void*));
}

}  // namespace
