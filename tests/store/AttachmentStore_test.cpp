#include "AttachmentStore.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <sstream>

#include "StoreFixture.h"

namespace kvhost {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr std::uint64_t kLimit = 1000;

std::string ReadAll(const fs::path& path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

class AttachmentStoreTest : public kvhosttest::StoreTest {
protected:
    std::string WhyRefused(const std::string& folder, const std::string& path) {
        try {
            m_attachments.AddFile(folder, path);
            return "";
        } catch (const AttachmentError& error) {
            return error.what();
        }
    }

    /// Makes everything in the store look as old as that.
    void MakeOld(const fs::path& path) {
        fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::hours(2));
    }

    /// What lies about besides kept contents: files that a failed copy left behind.
    int CountLeftovers() const {
        int count = 0;
        std::error_code error;
        for (const fs::directory_entry& entry : fs::directory_iterator(m_dir.file("attachments"), error)) {
            count += entry.is_directory() ? 0 : 1;
        }
        return count;
    }

    kvtest::TempDir m_source;
    AttachmentStore m_attachments{m_dir.path(), kLimit};
};

TEST_F(AttachmentStoreTest, AFileIsKeptUnderTheDigestOfItsContent) {
    m_source.write("plan.txt", "abc");
    const StoredAttachment kept = m_attachments.AddFile(m_source.path(), "plan.txt");
    EXPECT_EQ(kept.name, "plan.txt");
    EXPECT_EQ(kept.size, 3U);
    EXPECT_EQ(kept.digest, "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
    EXPECT_EQ(ReadAll(m_attachments.ContentPath(kept.digest)), "abc");
}

TEST_F(AttachmentStoreTest, WhatHappensToTheFileAfterwardsChangesNothing) {
    const std::string path = m_source.write("plan.txt", "abc");
    const StoredAttachment kept = m_attachments.AddFile(m_source.path(), "plan.txt");
    ::unlink(path.c_str());
    EXPECT_EQ(ReadAll(m_attachments.PathOf(kept)), "abc");
}

TEST_F(AttachmentStoreTest, TheReaderSeesTheNameThatWasSubmitted) {
    const StoredAttachment plan = m_attachments.AddContent("plan.txt", "abc");
    const StoredAttachment copy = m_attachments.AddContent("content", "abc");
    EXPECT_EQ(plan.digest, copy.digest);
    EXPECT_EQ(fs::path(m_attachments.PathOf(plan)).filename(), "plan.txt");
    EXPECT_EQ(fs::path(m_attachments.PathOf(copy)).filename(), "content");
    EXPECT_EQ(m_attachments.PathOf(plan), m_attachments.PathOf(plan));
    EXPECT_EQ(ReadAll(m_attachments.PathOf(copy)), "abc");
}

TEST_F(AttachmentStoreTest, AnEmptyFileIsAnAttachmentToo) {
    m_source.write("empty", "");
    EXPECT_EQ(ReadAll(m_attachments.PathOf(m_attachments.AddFile(m_source.path(), "empty"))), "");
}

TEST_F(AttachmentStoreTest, AFileOfAnySizeUpToTheLimitIsKeptWhole) {
    const std::string content(kLimit, 'x');
    m_source.write("full", content);
    EXPECT_EQ(ReadAll(m_attachments.PathOf(m_attachments.AddFile(m_source.path(), "full"))), content);
    m_source.write("more", content + "x");
    EXPECT_EQ(WhyRefused(m_source.path(), "more"),
              "more: it is larger than 1000 bytes, the limit for an attachment");
    EXPECT_EQ(CountLeftovers(), 0);
}

TEST_F(AttachmentStoreTest, AnAbsolutePathIsTakenAsItIs) {
    const std::string path = m_source.write("plan.txt", "abc");
    EXPECT_EQ(m_attachments.AddFile("/nowhere", path).size, 3U);
}

TEST_F(AttachmentStoreTest, ALinkIsNotFollowed) {
    const std::string path = m_source.write("plan.txt", "abc");
    ASSERT_EQ(::symlink(path.c_str(), m_source.file("link").c_str()), 0);
    EXPECT_EQ(WhyRefused(m_source.path(), "link"),
              "link: it is, or is reached through, a symbolic link; name the file itself");
}

TEST_F(AttachmentStoreTest, ALinkedFolderOnTheWayIsNotFollowed) {
    ASSERT_EQ(::mkdir(m_source.file("real").c_str(), 0700), 0);
    m_source.write("real/plan.txt", "abc");
    ASSERT_EQ(::symlink("real", m_source.file("linked").c_str()), 0);
    EXPECT_EQ(WhyRefused(m_source.path(), "real/plan.txt"), "");
    EXPECT_THAT(WhyRefused(m_source.path(), "linked/plan.txt"), HasSubstr("symbolic link"));
}

TEST_F(AttachmentStoreTest, NothingOutsideOfTheFolderIsReached) {
    ASSERT_EQ(::mkdir(m_source.file("inner").c_str(), 0700), 0);
    m_source.write("secret", "abc");
    EXPECT_EQ(WhyRefused(m_source.file("inner"), "../secret"),
              "../secret: it lies outside of the folder; name a file in it");
}

TEST_F(AttachmentStoreTest, OnlyARegularFileIsTaken) {
    ASSERT_EQ(::mkdir(m_source.file("folder").c_str(), 0700), 0);
    ASSERT_EQ(::mkfifo(m_source.file("pipe").c_str(), 0600), 0);
    EXPECT_EQ(WhyRefused(m_source.path(), "folder"), "folder: it is not a regular file");
    EXPECT_EQ(WhyRefused(m_source.path(), "pipe"), "pipe: it is not a regular file");
    EXPECT_EQ(WhyRefused("/", "/dev/null"), "/dev/null: it is not a regular file");
}

TEST_F(AttachmentStoreTest, AMissingFileIsNamed) {
    EXPECT_EQ(WhyRefused(m_source.path(), "none"), "none: it cannot be opened: No such file or directory");
    EXPECT_THAT(WhyRefused(m_source.file("none"), "a"), HasSubstr(m_source.file("none")));
}

TEST_F(AttachmentStoreTest, ANameThatIsNoFileNameIsRefused) {
    for (const char* name : {"", ".", "..", "a/b"}) {
        EXPECT_THROW(m_attachments.AddContent(name, "abc"), AttachmentError) << name;
    }
    EXPECT_THROW(m_attachments.AddContent(std::string("a\0b", 3), "abc"), AttachmentError);
}

TEST_F(AttachmentStoreTest, AContentThatIsGoneIsAnErrorAndNoEmptyFile) {
    const StoredAttachment kept = m_attachments.AddContent("plan.txt", "abc");
    fs::remove(m_attachments.ContentPath(kept.digest));
    EXPECT_THROW(m_attachments.PathOf(kept), AttachmentError);
}

TEST_F(AttachmentStoreTest, OldContentsThatNoJobRefersToAreRemoved) {
    const StoredAttachment used = m_attachments.AddContent("used", "used");
    const StoredAttachment unused = m_attachments.AddContent("unused", "unused");
    const StoredAttachment fresh = m_attachments.AddContent("fresh", "fresh");
    Submission mail = Mail("a");
    mail.attachments = {used};
    Submit(mail);
    MakeOld(m_attachments.ContentPath(used.digest));
    MakeOld(m_attachments.ContentPath(unused.digest));
    const std::string leftover = m_dir.write("attachments/new-abcdef", "half");
    MakeOld(leftover);
    EXPECT_EQ(m_attachments.RemoveUnused(m_store), 1);
    EXPECT_TRUE(fs::exists(m_attachments.ContentPath(used.digest)));
    EXPECT_FALSE(fs::exists(m_attachments.ContentPath(unused.digest)));
    EXPECT_TRUE(fs::exists(m_attachments.ContentPath(fresh.digest)));
    EXPECT_EQ(CountLeftovers(), 0);
}

TEST_F(AttachmentStoreTest, KeepingAContentAgainMakesItYoungAgain) {
    const StoredAttachment kept = m_attachments.AddContent("plan.txt", "abc");
    MakeOld(m_attachments.ContentPath(kept.digest));
    m_attachments.AddContent("plan.txt", "abc");
    EXPECT_EQ(m_attachments.RemoveUnused(m_store), 0);
}

}  // namespace
}  // namespace kvhost
