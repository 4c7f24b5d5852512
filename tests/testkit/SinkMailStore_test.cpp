#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <system_error>

#include "SinkClient.h"
#include "sink/MailStore.h"
#include "sink/StartError.h"

using kvsink::MailStore;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace {

const kvsink::Envelope ENVELOPE = {"from@a.example", {"one@b.example", "two@b.example"}};
const kvsink::Origin ORIGIN = {"client.example", "127.0.0.1", "ESMTPS"};

}  // namespace

TEST(SinkMailStoreTest, FileIsTraceHeadersAndThenTheContentAsReceived) {
    const sinktest::ScratchDirectory directory;
    MailStore store(directory.path());
    const std::string content("Subject: x\r\n\r\nbare\n, \r, nul \0, \xE4\r\n", 34);
    EXPECT_EQ(store.store(ENVELOPE, ORIGIN, content), "0000000001");
    const std::string stored = sinktest::contentsOf(directory.file("0000000001.eml"));
    const std::string header = stored.substr(0, stored.find("Subject: x"));
    EXPECT_THAT(header, MatchesRegex("Return-Path: <from@a.example>\r\n"
                                     "X-Envelope-To: <one@b.example>\r\n"
                                     "X-Envelope-To: <two@b.example>\r\n"
                                     "Received: from client.example \\(\\[127.0.0.1\\]\\)\r\n"
                                     " by localhost with ESMTPS; [A-Z][a-z][a-z], [0-9][0-9] [A-Z][a-z][a-z] "
                                     "[0-9]+ [0-9][0-9]:[0-9][0-9]:[0-9][0-9] \\+0000\r\n"));
    EXPECT_EQ(stored.substr(header.size()), content);
}

TEST(SinkMailStoreTest, NullSenderIsAnEmptyReturnPath) {
    const sinktest::ScratchDirectory directory;
    MailStore store(directory.path());
    store.store({"", {"one@b.example"}}, ORIGIN, "");
    EXPECT_TRUE(sinktest::contentsOf(directory.file("0000000001.eml")).starts_with("Return-Path: <>\r\n"));
}

TEST(SinkMailStoreTest, NamesSortInTheOrderOfArrivalAndNothingElseRemains) {
    const sinktest::ScratchDirectory directory;
    MailStore store(directory.path());
    store.store(ENVELOPE, ORIGIN, "1");
    store.store(ENVELOPE, ORIGIN, "2");
    EXPECT_THAT(sinktest::namesIn(directory.path()), ElementsAre("0000000001.eml", "0000000002.eml"));
    EXPECT_TRUE(sinktest::contentsOf(directory.file("0000000002.eml")).ends_with("+0000\r\n2"));
}

TEST(SinkMailStoreTest, NumbersGoOnBehindTheHighestOneInTheDirectory) {
    const sinktest::ScratchDirectory directory;
    sinktest::writeFile(directory.file("0000000041.eml"), "");
    sinktest::writeFile(directory.file("0000000099.txt"), "");
    sinktest::writeFile(directory.file("notes.eml"), "");
    MailStore store(directory.path());
    EXPECT_EQ(store.store(ENVELOPE, ORIGIN, ""), "0000000042");
}

TEST(SinkMailStoreTest, TwoStoresShareADirectoryWithoutOverwriting) {
    const sinktest::ScratchDirectory directory;
    MailStore one(directory.path());
    MailStore two(directory.path());
    EXPECT_EQ(one.store(ENVELOPE, ORIGIN, "one"), "0000000001");
    EXPECT_EQ(two.store(ENVELOPE, ORIGIN, "two"), "0000000002");
    EXPECT_EQ(one.store(ENVELOPE, ORIGIN, "three"), "0000000003");
}

TEST(SinkMailStoreTest, MissingDirectoriesAreMade) {
    const sinktest::ScratchDirectory directory;
    MailStore store(directory.file("a/b"));
    store.store(ENVELOPE, ORIGIN, "");
    EXPECT_TRUE(std::filesystem::exists(directory.file("a/b/0000000001.eml")));
}

TEST(SinkMailStoreTest, DirectoryThatCannotBeMadeNamesTheOption) {
    const sinktest::ScratchDirectory directory;
    sinktest::writeFile(directory.file("file"), "");
    try {
        MailStore store(directory.file("file/mails"));
        FAIL() << "no exception";
    } catch (const kvsink::StartError& error) {
        EXPECT_THAT(error.what(), testing::StartsWith("--maildir: "));
        EXPECT_THAT(error.what(), HasSubstr("file"));
    }
}

TEST(SinkMailStoreTest, FailureToStoreIsReportedAndLeavesNothingBehind) {
    const sinktest::ScratchDirectory directory;
    MailStore store(directory.file("mails"));
    std::filesystem::remove_all(directory.file("mails"));
    EXPECT_THROW(store.store(ENVELOPE, ORIGIN, ""), std::system_error);
    EXPECT_THAT(sinktest::namesIn(directory.path()), ElementsAre());
}
