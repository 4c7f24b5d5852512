#include "MailReader.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "MailAddresses.h"
#include "MailCharset.h"
#include "MailHeader.h"

namespace kvhost {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::string FaultOf(const std::string& message) {
    const SubmissionDraft draft = ReadMail(message);
    return draft.faults.empty() ? "no fault" : Describe(draft.faults.front());
}

TEST(MailReaderTest, APlainMessageIsReadWholly) {
    const SubmissionDraft draft = ReadMail(
        "From: Desk <desk@example.org>\r\nTo: Ops <ops@example.org>, b@example.org\r\nCc: \"C, D\" "
        "<c@example.org>\r\n"
        "Bcc: d@example.org\r\nSubject: Boiler\r\n is cold\r\n\r\nline one\r\n.\r\n..\r\nend");
    EXPECT_THAT(draft.faults, IsEmpty());
    EXPECT_EQ(draft.submission.subject, "Boiler is cold");
    EXPECT_THAT(draft.submission.recipients,
                ElementsAre("ops@example.org", "b@example.org", "c@example.org", "d@example.org"));
    EXPECT_EQ(draft.submission.text, "line one\r\n.\r\n..\r\nend");
    EXPECT_THAT(draft.attachments, IsEmpty());
}

TEST(MailReaderTest, LinesMayEndInLfAlone) {
    const SubmissionDraft draft = ReadMail("Subject: a\nTo: x@y\n\nb\n");
    EXPECT_EQ(draft.submission.subject, "a");
    EXPECT_EQ(draft.submission.text, "b\n");
}

TEST(MailReaderTest, TheSeparatorOfAMailboxIsNoField) {
    EXPECT_EQ(ReadMail("From x@y Mon Jan  1 00:00:00 2024\nSubject: a\n\nb").submission.subject, "a");
}

TEST(MailReaderTest, AMessageWithoutSubjectAndRecipientsIsReadAllTheSame) {
    const SubmissionDraft draft = ReadMail("X: y\n\nb");
    EXPECT_THAT(draft.faults, IsEmpty());
    EXPECT_EQ(draft.submission.subject, "");
    EXPECT_THAT(draft.submission.recipients, IsEmpty());
}

TEST(MailReaderTest, ARecipientOfSeveralFieldsIsThereOnce) {
    EXPECT_THAT(ReadMail("To: a@b.org\nCc: a@B.org, c@d\nTo: c@d\n\n").submission.recipients,
                ElementsAre("a@b.org", "c@d"));
}

TEST(MailReaderTest, ATextIsDecodedToUtf8) {
    const auto textOf = [](const std::string& header, const std::string& body) {
        const SubmissionDraft draft = ReadMail(header + "\n\n" + body);
        return draft.faults.empty() ? draft.submission.text : Describe(draft.faults.front());
    };
    EXPECT_EQ(
        textOf("Content-Type: text/plain; charset=utf-8\nContent-Transfer-Encoding: base64", "Y2Fmw6k=\n"),
        "caf\xc3\xa9");
    EXPECT_EQ(
        textOf(
            "Content-Type: text/plain; charset=\"ISO-8859-1\"\nContent-Transfer-Encoding: Quoted-Printable",
            "caf=E9=\n!\n"),
        "caf\xc3\xa9!\n");
    EXPECT_EQ(textOf("Content-Transfer-Encoding: 8bit", "caf\xc3\xa9"), "caf\xc3\xa9");
    EXPECT_EQ(
        textOf("Content-Type: text/plain", "caf\xe9"),
        "text: expected text in utf-8, us-ascii or iso-8859-1, and bytes that are of it; found the character "
        "set \"us-ascii\"; write the message in UTF-8");
    EXPECT_THAT(textOf("Content-Type: text/plain; charset=koi8-r", "x"), HasSubstr("\"koi8-r\""));
}

TEST(MailReaderTest, PartsBecomeTextAndAttachments) {
    const SubmissionDraft draft = ReadMail(
        "Content-Type: multipart/mixed; boundary=\"=_b\"\r\n\r\npreamble\r\n--=_b\r\n\r\nthe text\r\n"
        "--=_b  \r\nContent-Type: application/pdf; name=\"plan.pdf\"\r\nContent-Transfer-Encoding: base64\r\n"
        "Content-Disposition: attachment\r\n\r\nJVBE\r\nRg==\r\n"
        "--=_b\r\nContent-Type: text/plain\r\n\r\nthe footer\r\n"
        "--=_b\r\nContent-Type: image/png\r\n\r\n\x89PNG\r\n--=_b--\r\nepilogue");
    EXPECT_THAT(draft.faults, IsEmpty());
    EXPECT_EQ(draft.submission.text, "the text");
    ASSERT_EQ(draft.attachments.size(), 3U);
    EXPECT_EQ(draft.attachments[0].name, "plan.pdf");
    EXPECT_EQ(draft.attachments[0].content, "%PDF");
    EXPECT_EQ(draft.attachments[1].name, "part-3.txt");
    EXPECT_EQ(draft.attachments[1].content, "the footer");
    EXPECT_EQ(draft.attachments[2].name, "part-4.png");
    EXPECT_EQ(draft.attachments[2].content, "\x89PNG");
}

TEST(MailReaderTest, NestedPartsAreReadToo) {
    const SubmissionDraft draft = ReadMail(
        "Content-Type: multipart/mixed; boundary=o\n\n--o\nContent-Type: multipart/alternative; "
        "boundary=i\n\n"
        "--i\n\nplain\n--i\nContent-Type: text/html\n\n<b>rich</b>\n--i--\n"
        "--o\nContent-Type: message/rfc822\n\nSubject: inner\n\nx\n--o--\n");
    EXPECT_THAT(draft.faults, IsEmpty());
    EXPECT_EQ(draft.submission.text, "plain");
    ASSERT_EQ(draft.attachments.size(), 2U);
    EXPECT_EQ(draft.attachments[0].name, "message.html");
    EXPECT_EQ(draft.attachments[0].content, "<b>rich</b>");
    EXPECT_EQ(draft.attachments[1].name, "message.eml");
    EXPECT_EQ(draft.attachments[1].content, "Subject: inner\n\nx");
}

TEST(MailReaderTest, AMessageOfHtmlAloneSaysWhereItIs) {
    const SubmissionDraft draft = ReadMail("Content-Type: text/html\n\n<b>rich</b>\n");
    EXPECT_EQ(draft.submission.text, "The message is in the attachment message.html.\n");
    ASSERT_EQ(draft.attachments.size(), 1U);
    EXPECT_EQ(draft.attachments[0].content, "<b>rich</b>\n");
}

TEST(MailReaderTest, AnAttachedTextIsNotTheText) {
    const SubmissionDraft draft = ReadMail("Content-Disposition: attachment; filename=a.txt\n\nattached");
    EXPECT_EQ(draft.submission.text, "");
    ASSERT_EQ(draft.attachments.size(), 1U);
    EXPECT_EQ(draft.attachments[0].name, "a.txt");
}

TEST(MailReaderTest, NamesAreMadeSafe) {
    const auto nameOf = [](const std::string& parameter) {
        const SubmissionDraft draft = ReadMail("Content-Disposition: attachment; " + parameter + "\n\nx");
        return draft.attachments.empty() ? Describe(draft.faults.front()) : draft.attachments[0].name;
    };
    EXPECT_EQ(nameOf("filename=\"../../etc/passwd\""), "passwd");
    EXPECT_EQ(nameOf("filename=\"C:\\\\x\\\\y.doc\""), "y.doc");
    EXPECT_EQ(nameOf("filename=\"a\\\"b\tc\""), "a_b_c");
    EXPECT_EQ(nameOf("filename=\"..\""), "part-1.txt");
    EXPECT_EQ(nameOf("filename*=utf-8''caf%C3%A9.txt"), "caf_.txt");
    EXPECT_EQ(nameOf("filename*0*=iso-8859-1'fr'caf%E9; filename*1=\" menu.txt\""), "caf_ menu.txt");
    EXPECT_EQ(nameOf("filename=\"=?utf-8?Q?caf=C3=A9=2Etxt?=\""), "caf_.txt");
    EXPECT_EQ(nameOf("filename=\" =?x \""), "_?x");
    EXPECT_THAT(nameOf("filename*=koi8-r''x"), HasSubstr("content-disposition: expected text in utf-8"));
}

TEST(MailReaderTest, WhatIsMalformedIsToldWithItsField) {
    EXPECT_EQ(FaultOf("hello world\n\nx"),
              "expected a header field, \"Name: value\", on line 1 of the header, found \"hello world\"");
    EXPECT_EQ(FaultOf("Subject: a\nbad line\n\nx"),
              "expected a header field, \"Name: value\", on line 2 of the header, found \"bad line\"");
    EXPECT_THAT(FaultOf(" a: b\n\nx"), HasSubstr("on line 1 of the header"));
    EXPECT_EQ(FaultOf(std::string("A: b\0c\n\nx", 9)), "expected a header without NUL, found one on line 1");
    EXPECT_EQ(FaultOf("Subject: a\nSubject: b\n\n"),
              "subject: expected the header field once, found it 2 times");
    EXPECT_THAT(FaultOf("To: <a@b\n\n"), HasSubstr("to: expected \">\" after \"<\" in a list of addresses"));
    EXPECT_EQ(FaultOf("Content-Type: multipart/mixed\n\nx"),
              "content-type: expected the parameter \"boundary\" of a multipart, found none");
    EXPECT_EQ(
        FaultOf("Content-Type: multipart/mixed; boundary=b\n\n--b\n\ncut off"),
        "content-type: expected the line \"--b--\" at the end of a multipart, found none; the message may "
        "have been cut off");
    EXPECT_THAT(FaultOf("Content-Type: text/plain; charset=\"utf-8\n\nx"), HasSubstr("expected a quote"));
    EXPECT_THAT(FaultOf("Content-Type: text/plain; charset\n\nx"), HasSubstr("expected parameters"));
    EXPECT_EQ(FaultOf("Content-Transfer-Encoding: uuencode\n\nx"),
              "content-transfer-encoding: expected 7bit, 8bit, binary, quoted-printable or base64, found "
              "\"uuencode\"");
    EXPECT_EQ(FaultOf("Content-Transfer-Encoding: base64\n\n!"),
              "content-transfer-encoding: expected a part in base64, found malformed base64");
    EXPECT_THAT(FaultOf("Subject: =?koi8-r?Q?x?=\n\n"), HasSubstr("subject: expected text in utf-8"));
}

TEST(MailReaderTest, PartsInOneAnotherHaveALimit) {
    std::string message;
    for (int depth = 0; depth < 25; ++depth) {
        const std::string boundary = "b" + std::to_string(depth) + "x";
        message += "Content-Type: multipart/mixed; boundary=" + boundary + "\n\n--" + boundary + "\n";
    }
    message += "\nx\n";
    for (int depth = 24; depth >= 0; --depth) {
        message += "--b" + std::to_string(depth) + "x--\n";
    }
    EXPECT_EQ(FaultOf(message), "content-type: expected at most 20 multiparts in one another, found more");
}

TEST(MailReaderTest, EveryBeginningOfAMessageIsReadOrRefused) {
    const std::string message =
        "To: \"x\" (c) <a@b>\nSubject: =?utf-8?B?YQ==?= =?utf-8?Q?b=20?=\nContent-Type: multipart/mixed; "
        "boundary=\"b\"\n\n--b\nContent-Disposition: attachment; filename*0*=utf-8''a%20; "
        "filename*1=b\n\nx\n--b--\n";
    int faults = 0;
    for (std::size_t length = 0; length < message.size(); ++length) {
        faults += ReadMail(message.substr(0, length)).IsRefused() ? 1 : 0;
    }
    EXPECT_GT(faults, 0);
    EXPECT_EQ(FaultOf(message), "no fault");
}

TEST(MailCharsetTest, EncodedWordsAreDecodedAndJoined) {
    const auto decoded = [](const std::string& text) { return DecodeEncodedWords("subject", text); };
    EXPECT_EQ(decoded("plain  text"), "plain  text");
    EXPECT_EQ(decoded("=?utf-8?q?caf=C3=A9_au?= lait"), "caf\xc3\xa9 au lait");
    EXPECT_EQ(decoded("=?ISO-8859-1?B?Y2Fm6Q==?="), "caf\xc3\xa9");
    EXPECT_EQ(decoded("=?utf-8*fr?Q?a?="), "a");
    EXPECT_EQ(decoded("=?utf-8?Q?a_?= \t =?utf-8?Q?b?="), "a b");
    EXPECT_EQ(decoded("a =?utf-8?Q?b?= c"), "a b c");
    EXPECT_EQ(decoded("=?utf-8?B?w?= =?utf-8?Q?a?="), "=?utf-8?B?w?= a");
    EXPECT_EQ(decoded("=?utf-8?Q?=C3?= =?utf-8?Q?=A9?="), "\xc3\xa9");
    EXPECT_EQ(decoded("=?iso-8859-1?Q?=E9?= =?utf-8?Q?=C3=A9?="), "\xc3\xa9\xc3\xa9");
    EXPECT_EQ(decoded("=?utf-8?Q?open"), "=?utf-8?Q?open");
    EXPECT_EQ(decoded("=?utf-8?X?a?="), "=?utf-8?X?a?=");
    EXPECT_THROW(decoded("=?utf-8?Q?=E9?="), MailFault);
}

TEST(MailAddressesTest, AddressesComeWithoutNamesCommentsAndGroups) {
    const auto read = [](const std::string& text) { return ReadAddresses("to", text); };
    EXPECT_THAT(read("a@b"), ElementsAre("a@b"));
    EXPECT_THAT(read(" a@b ,, <c@d> , E F <e@f> (note, more) ,"), ElementsAre("a@b", "c@d", "e@f"));
    EXPECT_THAT(read("\"x, y\" <a@b>, \"quoted local\"@c"), ElementsAre("a@b", "\"quoted local\"@c"));
    EXPECT_THAT(read("a@b (one (two) \\) three), c@d"), ElementsAre("a@b", "c@d"));
    EXPECT_THAT(read("friends: a@b, C <c@d>;, e@f"), ElementsAre("a@b", "c@d", "e@f"));
    EXPECT_THAT(read("undisclosed-recipients:;"), IsEmpty());
    EXPECT_THAT(read("a@[IPv6:::1]"), ElementsAre("a@[IPv6:::1]"));
    EXPECT_THAT(read(""), IsEmpty());
    for (const char* text : {"<a@b", "\"a", "(a", "a@b c@d", "<>", "\"a\\"}) {
        EXPECT_THROW(read(text), MailFault) << text;
    }
}

}  // namespace
}  // namespace kvhost
