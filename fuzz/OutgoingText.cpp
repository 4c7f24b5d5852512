// Subject and text of a mail: what the recipient's mail program makes of them is what was handed in. Input: subject, text.
#include <algorithm>

#include "HeaderText.h"
#include "MailCharset.h"
#include "MailText.h"
#include "support/Check.h"
#include "support/HostInputs.h"
#include "support/Input.h"

namespace {

bool IsPrintableAscii(const std::string& text) {
    return std::all_of(text.begin(), text.end(), [](char c) { return c >= 0x20 && c <= 0x7E; });
}

void CheckSubject(const std::string& subject) {
    const std::string header = kvhost::HeaderText(subject);
    KV_FUZZ_CHECK(IsPrintableAscii(header));
    for (std::size_t at = 0; header != subject && at < header.size();) {
        const std::size_t end = std::min(header.find(' ', at), header.size());
        KV_FUZZ_CHECK(end - at <= 64);
        at = end + 1;
    }
    if (kvhost::IsUtf8(subject)) {
        KV_FUZZ_CHECK(kvhost::DecodeEncodedWords("subject", header) == subject);
    }
}

/// What a server stores of the lines between DATA and the line of a single dot (RFC 5321 4.5.2).
std::string AsReceived(const std::string& sent) {
    std::string received;
    for (std::size_t at = 0; at < sent.size();) {
        const std::size_t end = std::min(sent.find('\n', at), sent.size() - 1) + 1;
        const std::string line = sent.substr(at, end - at);
        KV_FUZZ_CHECK(line != "." && line != ".\n");
        received += line[0] == '.' ? line.substr(1) : line;
        at = end;
    }
    return received;
}

std::string WithPlainLineEnds(const std::string& text) {
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isCr = text[i] == '\r';
        if (!isCr || i + 1 == text.size() || text[i + 1] != '\n') {
            plain += isCr ? '\n' : text[i];
        }
    }
    return plain;
}

void CheckMail(const std::string& subject, const std::string& text) {
    const kvhost::PreparedMail mail = kvhost::PrepareMail(subject, text);
    KV_FUZZ_CHECK(mail.subject == kvhost::HeaderText(subject));
    KV_FUZZ_CHECK(mail.text.find('\r') == std::string::npos && mail.text.find('\0') == std::string::npos);
    KV_FUZZ_CHECK(mail.whyAttached == kvhost::WhyOnlyAttached(text).value_or(""));
    const std::string received = AsReceived(mail.text);
    KV_FUZZ_CHECK(!mail.whyAttached.empty() || received == WithPlainLineEnds(text));
    KV_FUZZ_CHECK(mail.text.find("--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon") != 0);
    KV_FUZZ_CHECK(mail.text.find("\n--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon") == std::string::npos);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    kvfuzz::Input input(data, size);
    const std::string subject = input.Piece();
    CheckSubject(subject);
    CheckMail(subject, input.Rest());
    return 0;
}
