#include "KvsystemResource.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <type_traits>

namespace {

using ::testing::ExitedWithCode;

/// A file with the given contents, removed at the end.
class TemporaryFile {
public:
    explicit TemporaryFile(const std::string& contents)
        : m_strPath((std::filesystem::temp_directory_path() / "kvresource.XXXXXX").string()) {
        const int descriptor = mkstemp(m_strPath.data());
        const auto written = write(descriptor, contents.data(), contents.size());
        EXPECT_EQ(written, static_cast<ssize_t>(contents.size()));
        close(descriptor);
    }
    ~TemporaryFile() { unlink(m_strPath.c_str()); }
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;

    const std::string& Path() const { return m_strPath; }

private:
    std::string m_strPath;
};

long OpenDescriptors() {
    const std::filesystem::directory_iterator descriptors("/proc/self/fd");
    return std::distance(begin(descriptors), end(descriptors));
}

/// A descriptor that is open on `path`; -1 when there is none.
int DescriptorOf(const std::string& path) {
    const auto meant = std::filesystem::canonical(path);
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code gone;
        if (std::filesystem::read_symlink(entry, gone) == meant) {
            return std::stoi(entry.path().filename());
        }
    }
    return -1;
}

/// The text of the std::out_of_range that loading `path` throws.
std::string OutOfRangeTextOfLoad(KvsystemResource& resource, const std::string& path) {
    try {
        resource.Load(path);
    } catch (const std::out_of_range& error) {
        return error.what();
    }
    return "(nothing was thrown)";
}

TEST(KvsystemResourceTest, AnEntryIsFoundByItsTenCharacterKey) {
    const TemporaryFile file(" MSG000001=Line busy\n\tMSG000002 No answer\n");
    KvsystemResource resource;
    ASSERT_TRUE(resource.Load(file.Path()));
    EXPECT_EQ(resource.GetString(" MSG000001"), "Line busy\n");
    EXPECT_EQ(resource.GetString("\tMSG000002"), "No answer\n");
}

TEST(KvsystemResourceTest, AnUnknownKeyAnswersUnknown) {
    const TemporaryFile file(" MSG000001=Line busy\n");
    KvsystemResource resource;
    EXPECT_EQ(resource.GetString(" MSG000001"), "Unknown");
    ASSERT_TRUE(resource.Load(file.Path()));
    EXPECT_EQ(resource.GetString("MSG000001"), "Unknown");
    EXPECT_EQ(resource.GetString(" msg000001"), "Unknown");
}

TEST(KvsystemResourceTest, OnlyLinesThatBeginWithWhiteSpaceAreEntries) {
    const TemporaryFile file("# comment\nMSG0000001=Line busy\nx\n");
    KvsystemResource resource;
    EXPECT_TRUE(resource.Load(file.Path()));
    EXPECT_EQ(resource.GetString("MSG0000001"), "Unknown");
    EXPECT_EQ(resource.GetString("# comment\n"), "Unknown");
}

TEST(KvsystemResourceTest, TheTextOfAnEntryEndsWithItsNewline) {
    const TemporaryFile file(" MSG000001=Line busy\n MSG000002=No answer");
    KvsystemResource resource;
    ASSERT_TRUE(resource.Load(file.Path()));
    EXPECT_EQ(resource.GetString(" MSG000001"), "Line busy\n");
    EXPECT_EQ(resource.GetString(" MSG000002"), "No answer");
}

TEST(KvsystemResourceTest, AnEntryOfElevenCharactersHasAnEmptyText) {
    const TemporaryFile file(" MSG000001\n");
    KvsystemResource resource;
    ASSERT_TRUE(resource.Load(file.Path()));
    EXPECT_EQ(resource.GetString(" MSG000001"), "");
}

TEST(KvsystemResourceTest, TheFirstTextOfAKeyIsKept) {
    const TemporaryFile first(" MSG000001=one\n MSG000001=two\n");
    const TemporaryFile second(" MSG000001=three\n MSG000002=four\n");
    KvsystemResource resource;
    ASSERT_TRUE(resource.Load(first.Path()));
    ASSERT_TRUE(resource.Load(second.Path()));
    EXPECT_EQ(resource.GetString(" MSG000001"), "one\n");
    EXPECT_EQ(resource.GetString(" MSG000002"), "four\n");
}

TEST(KvsystemResourceTest, AMissingFileLeavesTheTableAsItWas) {
    const TemporaryFile file(" MSG000001=one\n");
    KvsystemResource resource;
    ASSERT_TRUE(resource.Load(file.Path()));
    EXPECT_FALSE(resource.Load(file.Path() + ".missing"));
    EXPECT_EQ(resource.GetString(" MSG000001"), "one\n");
}

TEST(KvsystemResourceTest, AnEmptyLineThrowsAndKeepsTheEntriesBeforeIt) {
    const TemporaryFile file(" MSG000001=one\n\n MSG000002=two\n");
    KvsystemResource resource;
    EXPECT_EQ(OutOfRangeTextOfLoad(resource, file.Path()), "basic_string::substr");
    EXPECT_EQ(resource.GetString(" MSG000001"), "one\n");
    EXPECT_EQ(resource.GetString(" MSG000002"), "Unknown");
}

TEST(KvsystemResourceTest, AnEntryOfTenCharactersThrows) {
    const TemporaryFile file(" MSG00001\n");
    KvsystemResource resource;
    EXPECT_EQ(OutOfRangeTextOfLoad(resource, file.Path()), "basic_string::substr");
}

TEST(KvsystemResourceDeathTest, TheFileStaysOpenAfterAShortEntry) {
    const TemporaryFile file(" short\n");
    EXPECT_EXIT(
        {
            KvsystemResource resource;
            const long before = OpenDescriptors();
            EXPECT_THROW(resource.Load(file.Path()), std::out_of_range);
            std::_Exit(static_cast<int>(OpenDescriptors() - before));
        },
        ExitedWithCode(1), "");
}

TEST(KvsystemResourceDeathTest, TheFileThatStaysOpenIsClosedInOtherPrograms) {
    const TemporaryFile file(" short\n");
    EXPECT_EXIT(
        {
            KvsystemResource resource;
            EXPECT_THROW(resource.Load(file.Path()), std::out_of_range);
            const int left = DescriptorOf(file.Path());
            std::_Exit(left != -1 && fcntl(left, F_GETFD) == FD_CLOEXEC ? 1 : 0);
        },
        ExitedWithCode(1), "");
}

TEST(KvsystemResourceTest, TheFileIsClosedAtItsEnd) {
    const TemporaryFile file(" MSG000001=one\n");
    KvsystemResource resource;
    const long before = OpenDescriptors();
    ASSERT_TRUE(resource.Load(file.Path()));
    EXPECT_EQ(OpenDescriptors(), before);
}

TEST(KvsystemResourceTest, ALineOfMoreThan65533CharactersIsReadAsSeveral) {
    const std::string longText(65533 - 11, 'x');
    const TemporaryFile file(" MSG000001=" + longText + " MSG000002=rest\n");
    KvsystemResource resource;
    ASSERT_TRUE(resource.Load(file.Path()));
    EXPECT_EQ(resource.GetString(" MSG000001"), longText);
    EXPECT_EQ(resource.GetString(" MSG000002"), "rest\n");
}

TEST(KvsystemResourceTest, UnloadEmptiesTheTable) {
    const TemporaryFile file(" MSG000001=one\n");
    KvsystemResource resource;
    ASSERT_TRUE(resource.Load(file.Path()));
    EXPECT_TRUE(resource.Unload());
    EXPECT_EQ(resource.GetString(" MSG000001"), "Unknown");
    EXPECT_TRUE(resource.Unload());
}

TEST(KvsystemResourceTest, ItIsAKvobject) {
    EXPECT_TRUE((std::is_base_of_v<Kvobject, KvsystemResource>));
    EXPECT_EQ(typeid(the_LibResource), typeid(KvsystemResource));
}

}  // namespace
