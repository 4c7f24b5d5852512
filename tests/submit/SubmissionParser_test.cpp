#include "SubmissionParser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "TimeText.h"

namespace kvhost {
namespace {

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::MatchesRegex;

class SubmissionParserTest : public testing::Test {
protected:
    SubmissionParserTest() {
        m_config.carriers["pager"].name = "pager";
        m_config.refusedCarriers["broken"] = "kvhost.toml:1: carrier.broken.server: expected a string";
    }

    static json Mail() {
        return {{"id", "a"}, {"carrier", "pager"}, {"recipient", "ops@example.org"}, {"text", "x"}};
    }
    static json MailWith(const std::string& field, const json& value) {
        json mail = Mail();
        mail[field] = value;
        return mail;
    }

    SubmissionDraft Parse(const json& object, SubmissionOrigin origin = SubmissionOrigin::Local) {
        return ParseSubmission(object, m_config, origin, m_now);
    }
    std::vector<std::string> FaultsOf(const json& object, SubmissionOrigin origin = SubmissionOrigin::Local) {
        std::vector<std::string> faults;
        for (const SubmissionDraft::Fault& fault : Parse(object, origin).faults) {
            faults.push_back(Describe(fault));
        }
        return faults;
    }
    std::vector<std::string> FaultsWith(const std::string& field, const json& value) {
        return FaultsOf(MailWith(field, value));
    }
    std::vector<std::string> FaultsOfRecipients(const json& recipients) {
        json mail = MailWith("recipients", recipients);
        mail.erase("recipient");
        return FaultsOf(mail);
    }

    HostConfig m_config;
    const StoreTime m_now = *ParseTime("2026-03-01T09:00:00Z");
};

TEST_F(SubmissionParserTest, ASubmissionIsReadWholly) {
    const SubmissionDraft draft = Parse({{"id", "boiler-7"},
                                         {"carrier", "pager"},
                                         {"recipients", {"ops@example.org", "desk@example.org"}},
                                         {"subject", "Boiler"},
                                         {"text", "cold\n.\n"},
                                         {"attachments",
                                          {"plan.pdf",
                                           {{"path", "t.png"}, {"name", "temperature.png"}},
                                           {{"name", "n"}, {"content_base64", "aGk="}}}},
                                         {"urgent", true},
                                         {"not_before", "2026-03-01T11:00:00+01:00"},
                                         {"deadline", "2h"}});
    EXPECT_THAT(draft.faults, IsEmpty());
    EXPECT_EQ(draft.submission.id, "boiler-7");
    EXPECT_EQ(draft.submission.carrier, "pager");
    EXPECT_THAT(draft.submission.recipients, ElementsAre("ops@example.org", "desk@example.org"));
    EXPECT_EQ(draft.submission.subject, "Boiler");
    EXPECT_EQ(draft.submission.text, "cold\n.\n");
    EXPECT_TRUE(draft.submission.isUrgent);
    EXPECT_EQ(draft.submission.notBefore, ParseTime("2026-03-01T10:00:00Z"));
    EXPECT_EQ(draft.submission.deadline, ParseTime("2026-03-01T11:00:00Z"));
    ASSERT_EQ(draft.attachments.size(), 3U);
    EXPECT_EQ(draft.attachments[0].path, "plan.pdf");
    EXPECT_EQ(draft.attachments[1].path, "t.png");
    EXPECT_EQ(draft.attachments[1].name, "temperature.png");
    EXPECT_EQ(draft.attachments[2].name, "n");
    EXPECT_EQ(draft.attachments[2].content, "hi");
}

TEST_F(SubmissionParserTest, WhatIsLeftOutHasItsDefault) {
    const SubmissionDraft draft = Parse(Mail());
    EXPECT_THAT(draft.faults, IsEmpty());
    EXPECT_THAT(draft.submission.recipients, ElementsAre("ops@example.org"));
    EXPECT_EQ(draft.submission.subject, "");
    EXPECT_FALSE(draft.submission.isUrgent);
    EXPECT_FALSE(draft.submission.notBefore);
    EXPECT_FALSE(draft.submission.deadline);
    EXPECT_THAT(draft.attachments, IsEmpty());
}

TEST_F(SubmissionParserTest, AnAbsentIdIsARandomOne) {
    json mail = Mail();
    mail.erase("id");
    const SubmissionDraft first = Parse(mail);
    const SubmissionDraft second = Parse(mail);
    EXPECT_THAT(first.faults, IsEmpty());
    EXPECT_THAT(first.submission.id, MatchesRegex("[0-9a-f]{32}"));
    EXPECT_NE(first.submission.id, second.submission.id);
}

TEST_F(SubmissionParserTest, WhatIsNoObjectIsRefused) {
    EXPECT_THAT(FaultsOf(json::array({1})), ElementsAre("expected one JSON object, found an array"));
    EXPECT_THAT(FaultsOf(nullptr), ElementsAre("expected one JSON object, found null"));
}

TEST_F(SubmissionParserTest, MissingFieldsAreNamedOnce) {
    EXPECT_THAT(FaultsOf(json::object()),
                ElementsAre("carrier: expected a string, the field is missing",
                            "recipient: expected recipient or recipients, both fields are missing",
                            "text: expected a string, the field is missing"));
}

TEST_F(SubmissionParserTest, FieldsOfAnotherTypeAreNamedOnce) {
    EXPECT_THAT(
        FaultsOf({{"id", 1},
                  {"carrier", nullptr},
                  {"recipient", 2},
                  {"subject", json::array()},
                  {"text", json::object()},
                  {"attachments", "plan.pdf"},
                  {"urgent", "yes"},
                  {"not_before", 3},
                  {"deadline", false}}),
        ElementsAre(
            "id: expected a string, found a number", "carrier: expected a string, found null",
            "recipient: expected a string, found a number", "subject: expected a string, found an array",
            "text: expected a string, found an object", "attachments: expected an array, found a string",
            "urgent: expected true or false, found a string", "not_before: expected a string, found a number",
            "deadline: expected a string, found a boolean"));
}

TEST_F(SubmissionParserTest, UnknownFieldsAreRefused) {
    EXPECT_THAT(FaultsWith("cc", "x@y"),
                ElementsAre("cc: unknown field, expected id, carrier, recipient, recipients, subject, text, "
                            "attachments, urgent, not_before or deadline"));
}

TEST_F(SubmissionParserTest, RecipientAndRecipientsExcludeEachOther) {
    EXPECT_THAT(FaultsWith("recipients", {"c@d"}),
                ElementsAre("recipient: expected either recipient or recipients, found both"));
}

TEST_F(SubmissionParserTest, AnIdIsShortPrintableAndWithoutSlash) {
    EXPECT_THAT(FaultsWith("id", ""),
                ElementsAre(HasSubstr("id: expected an identifier, found an empty one")));
    EXPECT_THAT(FaultsWith("id", std::string(200, 'x')), IsEmpty());
    EXPECT_THAT(FaultsWith("id", std::string(201, 'x')),
                ElementsAre("id: expected an identifier of at most 200 bytes, found 201"));
    EXPECT_THAT(FaultsWith("id", "a\nb"),
                ElementsAre("id: expected an identifier of UTF-8 text without control characters, found "
                            "\"a<LF>b\""));
    EXPECT_THAT(FaultsWith("id", "a/1"),
                ElementsAre("id: expected an identifier without \"/\", which numbers the jobs of a "
                            "submission (\"ID/1\"), found \"a/1\""));
}

TEST_F(SubmissionParserTest, AnEscapedNulIsRefusedInEveryField) {
    const std::string nul("a\0b", 3);
    for (const char* field : {"id", "carrier", "recipient", "subject", "text", "not_before", "deadline"}) {
        EXPECT_THAT(FaultsWith(field, nul), ElementsAre(HasSubstr(std::string(field) + ": expected")))
            << field;
    }
    EXPECT_THAT(FaultsWith("attachments", {nul}), ElementsAre(HasSubstr("attachments[1]: expected")));
    EXPECT_THAT(FaultsWith("attachments", {{{"name", nul}, {"content_base64", ""}}}),
                ElementsAre(HasSubstr("attachments[1]: expected a file name")));
}

TEST_F(SubmissionParserTest, AnUnknownCarrierIsRefused) {
    EXPECT_THAT(
        FaultsWith("carrier", "pigeon"),
        ElementsAre("carrier: expected a carrier of the configuration, found \"pigeon\"; `kvhost config "
                    "check` lists them"));
}

TEST_F(SubmissionParserTest, ARefusedCarrierIsRefusedWithItsReason) {
    EXPECT_THAT(FaultsWith("carrier", "broken"),
                ElementsAre("carrier: the carrier is refused: kvhost.toml:1: carrier.broken.server: expected "
                            "a string"));
}

TEST_F(SubmissionParserTest, AnAddressThatCouldAddACommandIsRefused) {
    for (const char* address :
         {"a@b\r\nRCPT TO:<c@d>", "a@b\n", "a@b\r", "<a@b>", "a@b>", "a\tb@c", "a@b\x7f"}) {
        EXPECT_THAT(FaultsWith("recipient", address),
                    ElementsAre(HasSubstr("recipient: expected a mail address without control characters and "
                                          "without \"<\" and \">\"")))
            << address;
    }
}

TEST_F(SubmissionParserTest, AnAddressIsNeitherEmptyNorTooLong) {
    EXPECT_THAT(FaultsWith("recipient", ""),
                ElementsAre("recipient: expected a mail address, found an empty one; give the address alone, "
                            "such as \"ops@example.org\""));
    EXPECT_THAT(FaultsWith("recipient", std::string(252, 'x') + "@y"), IsEmpty());
    EXPECT_THAT(FaultsWith("recipient", std::string(253, 'x') + "@y"),
                ElementsAre(HasSubstr("expected a mail address of at most 254 bytes, found 255")));
}

TEST_F(SubmissionParserTest, OneBadAddressOfSeveralIsNamed) {
    EXPECT_THAT(FaultsOfRecipients({"a@b", "c\n@d"}), ElementsAre(HasSubstr("recipients: expected a mail")));
    EXPECT_THAT(FaultsOfRecipients({"a@b", "c\n@d"}), ElementsAre(HasSubstr("\"c<LF>@d\"")));
}

TEST_F(SubmissionParserTest, ThereIsAtLeastOneRecipient) {
    EXPECT_THAT(FaultsOfRecipients(json::array()),
                ElementsAre("recipients: expected at least one recipient"));
}

TEST_F(SubmissionParserTest, TooManyRecipientsAreRefused) {
    m_config.limits.recipients = 2;
    EXPECT_THAT(FaultsOfRecipients({"a@b", "c@d"}), IsEmpty());
    EXPECT_THAT(FaultsOfRecipients({"a@b", "c@d", "e@f"}),
                ElementsAre("recipients: expected at most 2 recipients (limits.recipients), found 3; make "
                            "several submissions of it"));
}

TEST_F(SubmissionParserTest, ARecipientIsThereOnce) {
    EXPECT_THAT(
        FaultsOfRecipients({"a@b.org", "a@B.ORG"}),
        ElementsAre("recipients: expected every recipient once, found \"a@B.ORG\" again; it would get "
                    "the same mail twice"));
    EXPECT_THAT(FaultsOfRecipients({"a@b.org", "A@b.org"}), IsEmpty());
}

TEST_F(SubmissionParserTest, ASubjectIsOneLineOfAtMost900Bytes) {
    for (const char* subject : {"a\nBcc: x@y", "a\rb", "a\tb", "a\x1b[2J", "a\x7f"}) {
        EXPECT_THAT(FaultsWith("subject", subject),
                    ElementsAre(HasSubstr("subject: expected one line of text without control characters")))
            << subject;
    }
    EXPECT_THAT(FaultsWith("subject", std::string(900, 'x')), IsEmpty());
    EXPECT_THAT(FaultsWith("subject", std::string(901, 'x')),
                ElementsAre("subject: expected at most 900 bytes, found 901; put the rest into the text"));
}

TEST_F(SubmissionParserTest, SubjectAndTextAreUtf8) {
    EXPECT_THAT(FaultsWith("subject", "caf\xc3\xa9"), IsEmpty());
    EXPECT_THAT(FaultsWith("subject", "caf\xe9"),
                ElementsAre("subject: expected UTF-8, found \"caf<E9>\"; convert the subject to UTF-8"));
    EXPECT_THAT(
        FaultsWith("text", "caf\xe9"),
        ElementsAre("text: expected UTF-8, found other bytes; convert the text to UTF-8, or attach it"));
    EXPECT_THAT(FaultsWith("text", "\xed\xa0\x80"), ElementsAre(HasSubstr("text: expected UTF-8")));
}

TEST_F(SubmissionParserTest, ATextHasItsLimit) {
    m_config.limits.textBytes = 5;
    EXPECT_THAT(FaultsWith("text", "12345"), IsEmpty());
    EXPECT_THAT(FaultsWith("text", "123456"),
                ElementsAre("text: expected at most 5 bytes (limits.text_bytes), found 6; attach what is "
                            "longer"));
}

TEST_F(SubmissionParserTest, LoneDotsLongLinesAndAnEmptyTextAreTaken) {
    EXPECT_THAT(FaultsWith("text", ".\n..\r\n.\r\n" + std::string(5000, 'x') + "\x01"), IsEmpty());
    EXPECT_THAT(FaultsWith("text", ""), IsEmpty());
}

TEST_F(SubmissionParserTest, TooManyAttachmentsAreRefused) {
    m_config.limits.attachments = 1;
    EXPECT_THAT(FaultsWith("attachments", {"a"}), IsEmpty());
    EXPECT_THAT(FaultsWith("attachments", {"a", "b"}),
                ElementsAre("attachments: expected at most 1 attachments (limits.attachments), found 2; make "
                            "one archive of them"));
}

TEST_F(SubmissionParserTest, AGivenContentHasItsLimit) {
    m_config.limits.attachmentBytes = 2;
    EXPECT_THAT(FaultsWith("attachments", {{{"name", "n"}, {"content_base64", "aGk="}}}), IsEmpty());
    EXPECT_THAT(FaultsWith("attachments", {"p", {{"name", "n"}, {"content_base64", "aGlo"}}}),
                ElementsAre("attachments[2]: expected at most 2 bytes (limits.attachment_bytes), found 3"));
}

TEST_F(SubmissionParserTest, AnAttachmentsNameIsAFileName) {
    for (const char* name :
         {"a/b", "a\\b", "a\"b", "a\nb", "..", "a\xff", "Gr\u00f6\u00dfe.txt", "=?a", " a"}) {
        EXPECT_THAT(FaultsWith("attachments", {{{"name", name}, {"content_base64", ""}}}),
                    ElementsAre(HasSubstr("attachments[1]: expected a file name")))
            << name;
        EXPECT_THAT(FaultsWith("attachments", {{{"name", name}, {"path", "good.txt"}}}),
                    ElementsAre(HasSubstr("attachments[1]: expected a file name")))
            << name;
    }
    EXPECT_THAT(FaultsWith("attachments", {"folder/a\"b"}), ElementsAre(HasSubstr("expected a file name")));
    EXPECT_THAT(FaultsWith("attachments", {"folder/"}), ElementsAre(HasSubstr("expected a file name")));
    EXPECT_THAT(FaultsWith("attachments", {{{"name", std::string(256, 'n')}, {"content_base64", ""}}}),
                ElementsAre(HasSubstr("expected a file name of at most 255 bytes, found 256")));
    EXPECT_THAT(FaultsWith("attachments", {{{"name", ""}, {"content_base64", ""}}}),
                ElementsAre(HasSubstr(
                    "attachments[1]: expected a file name: \"\"; give another one in the field name")));
}

TEST_F(SubmissionParserTest, AnAttachmentIsAPathOrAContent) {
    EXPECT_THAT(FaultsWith("attachments", {7}),
                ElementsAre("attachments[1]: expected a path, or an object with the fields name and path or "
                            "content_base64; found a number"));
    EXPECT_THAT(FaultsWith("attachments", {{{"name", "n"}}}),
                ElementsAre("attachments[1].content_base64: expected exactly one of path and "
                            "content_base64"));
    EXPECT_THAT(FaultsWith("attachments", {{{"name", "n"}, {"path", "p"}, {"content_base64", ""}}}),
                ElementsAre(HasSubstr("expected exactly one of path and content_base64")));
    EXPECT_THAT(FaultsWith("attachments", {{{"content_base64", ""}}}),
                ElementsAre(HasSubstr("attachments[1].name: expected the file name")));
    EXPECT_THAT(FaultsWith("attachments", {{{"name", "n"}, {"content_base64", "aGk"}}}),
                ElementsAre(HasSubstr("attachments[1].content_base64: expected base64")));
    EXPECT_THAT(FaultsWith("attachments", {{{"name", "n"}, {"path", "p"}, {"type", "x"}}}),
                ElementsAre("attachments[1].type: unknown field, expected name, path or content_base64"));
    EXPECT_THAT(FaultsWith("attachments", {""}),
                ElementsAre("attachments[1]: expected the path of a file, without NUL"));
}

TEST_F(SubmissionParserTest, OverTheNetworkNoFileCanBeNamed) {
    for (const json& attachment : {json("/etc/passwd"), json({{"name", "n"}, {"path", "/etc/passwd"}})}) {
        EXPECT_THAT(FaultsOf(MailWith("attachments", json::array({attachment})), SubmissionOrigin::Remote),
                    ElementsAre(HasSubstr("a file cannot be named over the network")));
    }
    EXPECT_THAT(FaultsOf(MailWith("attachments", {{{"name", "n"}, {"content_base64", "aGk="}}}),
                         SubmissionOrigin::Remote),
                IsEmpty());
}

TEST_F(SubmissionParserTest, ATimeIsATimeOrADuration) {
    EXPECT_THAT(
        FaultsWith("not_before", "tomorrow"),
        ElementsAre("not_before: expected a time such as \"2026-03-01T09:30:00Z\" or "
                    "\"2026-03-01T09:30:00+02:00\", or a duration such as \"250ms\", \"30s\", \"5m\", "
                    "\"2h\" or \"7d\" from now on; found \"tomorrow\""));
    EXPECT_THAT(FaultsWith("deadline", "2026-02-30T00:00:00Z"), ElementsAre(HasSubstr("deadline: expected")));
}

TEST_F(SubmissionParserTest, ADeadlineIsToComeAndAfterTheBeginning) {
    EXPECT_THAT(FaultsWith("deadline", "2026-03-01T09:00:00Z"),
                ElementsAre("deadline: expected a time to come, found 2026-03-01T09:00:00.000Z; it is "
                            "2026-03-01T09:00:00.000Z now"));
    EXPECT_THAT(FaultsWith("deadline", "0s"), ElementsAre(HasSubstr("deadline: expected a time to come")));
    json mail = MailWith("deadline", "1h");
    mail["not_before"] = "1h";
    EXPECT_THAT(FaultsOf(mail),
                ElementsAre("not_before: expected a time before the deadline (2026-03-01T10:00:00.000Z), "
                            "found 2026-03-01T10:00:00.000Z"));
    mail["not_before"] = "59m";
    EXPECT_THAT(FaultsOf(mail), IsEmpty());
}

TEST_F(SubmissionParserTest, ATimeThatIsOverIsABeginningAtOnce) {
    EXPECT_THAT(FaultsWith("not_before", "2020-01-01T00:00:00Z"), IsEmpty());
}

TEST_F(SubmissionParserTest, EveryFaultIsNamed) {
    EXPECT_THAT(
        FaultsOf({{"id", "a/b"}, {"carrier", "pigeon"}, {"recipient", ""}, {"subject", "\n"}, {"text", ""}}),
        ElementsAre(HasSubstr("id: "), HasSubstr("carrier: "), HasSubstr("recipient: "),
                    HasSubstr("subject: ")));
}

}  // namespace
}  // namespace kvhost
