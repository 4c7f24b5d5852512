#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "SinkClient.h"
#include "sink/SelfSigned.h"
#include "sink/StartError.h"
#include "sink/TlsContext.h"

using testing::ElementsAre;
using testing::StartsWith;

namespace {

std::string faultOf(const kvsink::Options& options) {
    try {
        const kvsink::TlsContext context(options);
        return "";
    } catch (const kvsink::StartError& error) {
        return error.what();
    }
}

kvsink::Options optionsFor(const std::string& certFile, const std::string& keyFile) {
    kvsink::Options options;
    options.certFile = certFile;
    options.keyFile = keyFile;
    return options;
}

}  // namespace

TEST(SinkTlsContextTest, SelfSignedCertificatesAreWrittenAndUsed) {
    const sinktest::ScratchDirectory directory;
    kvsink::Options options;
    options.selfSignedDir = directory.file("made");
    EXPECT_EQ(faultOf(options), "");
    EXPECT_THAT(sinktest::namesIn(directory.file("made")), ElementsAre("ca.pem", "cert.pem", "key.pem"));
}

TEST(SinkTlsContextTest, OnlyTheOwnerReadsTheKey) {
    const sinktest::ScratchDirectory directory;
    kvsink::writeSelfSignedCertificates(directory.path());
    struct stat status {};
    ASSERT_EQ(::stat(directory.file("key.pem").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
}

TEST(SinkTlsContextTest, EachStartMakesOtherCertificates) {
    const sinktest::ScratchDirectory directory;
    kvsink::writeSelfSignedCertificates(directory.path());
    const std::string first = sinktest::contentsOf(directory.file("cert.pem"));
    kvsink::writeSelfSignedCertificates(directory.path());
    EXPECT_NE(sinktest::contentsOf(directory.file("cert.pem")), first);
}

TEST(SinkTlsContextTest, GivenFilesAreUsed) {
    const sinktest::ScratchDirectory directory;
    kvsink::writeSelfSignedCertificates(directory.path());
    EXPECT_EQ(faultOf(optionsFor(directory.file("cert.pem"), directory.file("key.pem"))), "");
}

TEST(SinkTlsContextTest, MissingCertificateNamesTheOption) {
    const sinktest::ScratchDirectory directory;
    const std::string file = directory.file("none.pem");
    EXPECT_THAT(faultOf(optionsFor(file, file)), StartsWith("--cert: cannot use " + file + ": "));
}

TEST(SinkTlsContextTest, FileThatIsNoKeyNamesTheOption) {
    const sinktest::ScratchDirectory directory;
    kvsink::writeSelfSignedCertificates(directory.path());
    const std::string key = directory.file("ca.pem");
    EXPECT_THAT(faultOf(optionsFor(directory.file("cert.pem"), key)),
                StartsWith("--key: cannot use " + key + ": "));
}

TEST(SinkTlsContextTest, KeyOfAnotherCertificateNamesTheOption) {
    const sinktest::ScratchDirectory directory;
    kvsink::writeSelfSignedCertificates(directory.file("one"));
    kvsink::writeSelfSignedCertificates(directory.file("two"));
    EXPECT_THAT(faultOf(optionsFor(directory.file("one/cert.pem"), directory.file("two/key.pem"))),
                StartsWith("--key: "));
}

TEST(SinkTlsContextTest, DirectoryThatCannotBeMadeNamesTheOption) {
    const sinktest::ScratchDirectory directory;
    sinktest::writeFile(directory.file("file"), "");
    kvsink::Options options;
    options.selfSignedDir = directory.file("file/certs");
    EXPECT_THAT(faultOf(options), StartsWith("--self-signed: "));
}
