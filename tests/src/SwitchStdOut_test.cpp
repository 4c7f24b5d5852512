#include "SwitchStdOut.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <type_traits>
#include <vector>

#include "Descriptors.h"
#include "TempDir.h"
#include "src/ProcessDoubles.h"

namespace {

using kvtest::ContentOf;
using kvtest::FileExists;
using kvtest::StatusOfChild;
using kvtest::TempDir;
using kvtest::TextOfChild;

class OpenedSwitch : public SwitchStdOut {
public:
    using SwitchStdOut::SwitchStdOut;

    const char* Path() const { return path; }
    std::vector<int> Saved() const { return {savedStdout, savedStderr}; }
    /// The members' distances from the beginning of the object, in bytes.
    std::vector<std::ptrdiff_t> MemberOffsets() const {
        const auto offset = [this](const void* member) {
            return static_cast<const char*>(member) - reinterpret_cast<const char*>(this);
        };
        return {offset(&path), offset(&savedStdout), offset(&stdoutPos), offset(&savedStderr),
                offset(&stderrPos)};
    }
};

/// Standard streams of a child on files of their own.
class SwitchStdOutTest : public ::testing::Test {
protected:
    /// Runs `body` in a child whose standard streams are the files "out" and "err".
    int InChild(const std::function<int()>& body) {
        return StatusOfChild([&] {
            if (std::freopen(dir.file("out").c_str(), "w", stdout) == nullptr ||
                std::freopen(dir.file("err").c_str(), "w", stderr) == nullptr) {
                return 98;
            }
            const int status = body();
            std::fflush(nullptr);
            return status;
        });
    }
    std::string Out() const { return ContentOf(dir.file("out")); }
    std::string Err() const { return ContentOf(dir.file("err")); }

    TempDir dir;
    const std::string capture = dir.file("capture");
    const std::string captureOfErrors = dir.file("capture_error");
};

TEST_F(SwitchStdOutTest, BothStreamsGoToTheFilesInTheScopeAndBackAfterIt) {
    EXPECT_EQ(InChild([&] {
                  std::printf("before ");
                  std::fprintf(stderr, "before ");
                  std::string captured;
                  {
                      const SwitchStdOut redirected(capture.c_str());
                      std::printf("within");
                      std::fprintf(stderr, "wrong");
                      std::fflush(nullptr);
                      captured = ContentOf(capture) + "|" + ContentOf(captureOfErrors);
                  }
                  std::printf("after");
                  std::fprintf(stderr, "after");
                  return captured == "within|wrong" ? 0 : 1;
              }),
              0);
    EXPECT_EQ(Out(), "before after");
    EXPECT_EQ(Err(), "before after");
}

TEST_F(SwitchStdOutTest, OnlyTheErrorFileIsLeftAtTheEnd) {
    EXPECT_EQ(InChild([&] {
                  {
                      const SwitchStdOut redirected(capture.c_str());
                      std::fprintf(stderr, "wrong");
                      if (!FileExists(capture)) {
                          return 1;
                      }
                  }
                  return FileExists(capture) ? 2 : 0;
              }),
              0);
    EXPECT_EQ(ContentOf(captureOfErrors), "wrong");
}

TEST_F(SwitchStdOutTest, WhatTheFilesHaveAlreadyStays) {
    dir.write("capture", "old ");
    dir.write("capture_error", "old ");
    EXPECT_EQ(InChild([&] {
                  const SwitchStdOut redirected(capture.c_str());
                  std::printf("new");
                  std::fprintf(stderr, "new");
                  std::fflush(nullptr);
                  return ContentOf(capture) == "old new" ? 0 : 1;
              }),
              0);
    EXPECT_EQ(ContentOf(captureOfErrors), "old new");
}

TEST_F(SwitchStdOutTest, WhatWasNotFlushedBeforeTheScopeDoesNotGetIntoTheFile) {
    EXPECT_EQ(InChild([&] {
                  std::setvbuf(stdout, nullptr, _IOFBF, 4096);
                  std::printf("early ");
                  const SwitchStdOut redirected(capture.c_str());
                  std::fflush(stdout);
                  return ContentOf(capture).empty() && Out() == "early " ? 0 : 1;
              }),
              0);
}

TEST_F(SwitchStdOutTest, ProgramsOfTheScopeWriteToTheFilesToo) {
    EXPECT_EQ(InChild([&] {
                  const SwitchStdOut redirected(capture.c_str());
                  const int result = std::system("echo shell; echo wrong >&2");
                  return result == 0 && ContentOf(capture) == "shell\n" ? 0 : 1;
              }),
              0);
    EXPECT_EQ(ContentOf(captureOfErrors), "wrong\n");
    EXPECT_EQ(Out(), "");
}

TEST_F(SwitchStdOutTest, TheStreamsGoOnAtTheirOldPositions) {
    EXPECT_EQ(InChild([&] {
                  std::printf("0123456789");
                  std::fseek(stdout, 4, SEEK_SET);
                  { const SwitchStdOut redirected(capture.c_str()); }
                  std::printf("xy");
                  return 0;
              }),
              0);
    EXPECT_EQ(Out(), "0123xy6789");
}

TEST_F(SwitchStdOutTest, ErrorMarksOfTheScopeAreClearedAtItsEnd) {
    EXPECT_EQ(InChild([&] {
                  {
                      const SwitchStdOut redirected(capture.c_str());
                      std::fgetc(stdout);  // at the end of the file
                      std::fgetc(stderr);
                      if (std::feof(stdout) == 0 || std::feof(stderr) == 0) {
                          return 1;
                      }
                  }
                  return std::feof(stdout) == 0 && std::feof(stderr) == 0 ? 0 : 2;
              }),
              0);
}

TEST_F(SwitchStdOutTest, ScopesMayFollowEachOther) {
    EXPECT_EQ(InChild([&] {
                  for (const char* const text : {"one", "two"}) {
                      const SwitchStdOut redirected(capture.c_str());
                      std::printf("%s", text);
                      std::fprintf(stderr, "%s", text);
                      std::fflush(nullptr);
                      if (ContentOf(capture) != text) {
                          return 1;
                      }
                  }
                  return 0;
              }),
              0);
    EXPECT_EQ(ContentOf(captureOfErrors), "onetwo");
}

TEST_F(SwitchStdOutTest, ItHoldsTwoDuplicatesThatProgramsDoNotInherit) {
    EXPECT_EQ(InChild([&] {
                  const int before = kvtest::OpenDescriptorCount();
                  {
                      const OpenedSwitch redirected(capture.c_str());
                      for (const int descriptor : redirected.Saved()) {
                          if ((fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == 0) {
                              return 1;
                          }
                      }
                      if (kvtest::OpenDescriptorCount() != before + 2) {
                          return 2;
                      }
                  }
                  return kvtest::OpenDescriptorCount() == before ? 0 : 3;
              }),
              0);
}

TEST_F(SwitchStdOutTest, TheDescriptorsKeepTheirNumbers) {
    EXPECT_EQ(InChild([&] {
                  const SwitchStdOut redirected(capture.c_str());
                  return fileno(stdout) == 1 && fileno(stderr) == 2 ? 0 : 1;
              }),
              0);
}

TEST_F(SwitchStdOutTest, MembersAreInTheirFixedOrderAndThereIsNoVirtualTable) {
    EXPECT_FALSE(std::is_polymorphic_v<SwitchStdOut>);
    EXPECT_EQ(TextOfChild([&] {
                  const OpenedSwitch redirected(capture.c_str());
                  const std::vector<std::ptrdiff_t> offsets = redirected.MemberOffsets();
                  const bool ordered = std::is_sorted(offsets.begin(), offsets.end());
                  return std::to_string(offsets[0]) + (ordered ? " ordered" : "") +
                         (redirected.Path() == capture.c_str() ? " not copied" : "");
              }),
              "0 ordered not copied");
}

}  // namespace
