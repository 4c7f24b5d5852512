#include "DriverLibrary.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "FakeDriverFixture.h"
#include "KvProtocolDriverInterface.h"

namespace kvhost {
namespace {

class DriverLibraryTest : public kvhosttest::FakeDriverTest {};

/// The text of the DriverError that loading `name` throws.
std::string FaultOf(const std::string& name) {
    try {
        DriverLibrary library(name);
    } catch (const DriverError& error) {
        return error.what();
    }
    return "no fault";
}

TEST_F(DriverLibraryTest, TheInstanceIsTheDriverOfTheLibrary) {
    DriverLibrary library(kvhosttest::kFakeDriver);
    KvProtocolDriverInterface& driver = library.GetInstance();
    EXPECT_STREQ(driver.GetName(), "FAKE");
    EXPECT_EQ(&library.GetInstance(), &driver);
    library.Release(driver);
    EXPECT_THAT(Calls(),
                testing::ElementsAre("GetDriverInstance", "GetDriverInstance", "ReleaseDriverInstance"));
}

TEST_F(DriverLibraryTest, ANameWithoutASlashIsFoundBesideTheExecutable) {
    EXPECT_EQ(FaultOf("libkvhost_fake_driver.so"), "no fault");
}

TEST_F(DriverLibraryTest, ANameWithASlashIsNotLookedUpElsewhere) {
    EXPECT_THAT(FaultOf("./libkvhost_fake_driver.so"), testing::HasSubstr("cannot open shared object file"));
}

TEST_F(DriverLibraryTest, AMissingLibraryIsNamed) {
    EXPECT_EQ(FaultOf("libkvnosuch.so"),
              "the driver cannot be loaded: libkvnosuch.so: cannot open shared object file: No such file or "
              "directory");
}

TEST_F(DriverLibraryTest, ALibraryWithoutTheFunctionsIsNoDriver) {
    const std::string path = KV_BINARY_DIR "/libkvhost_no_driver.so";
    EXPECT_EQ(FaultOf(path), path + " is no driver: it exports no GetDriverInstance");
}

TEST_F(DriverLibraryTest, ALibraryThatAnswersNoDriverIsRefused) {
    Set("KVFAKE_GET", "null");
    DriverLibrary library(kvhosttest::kFakeDriver);
    EXPECT_THROW(library.GetInstance(), DriverError);
}

}  // namespace
}  // namespace kvhost
