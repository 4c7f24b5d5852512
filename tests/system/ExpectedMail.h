#pragma once

#include <string>

namespace kvtest {

/// The message of "ann@example.org" with the subject "Subject" and the text "Text", as DATA carries it.
inline const std::string SimpleMessage =
    "Mime-Version: 1.0\r\n"
    "Subject: Subject\r\n"
    "From: ann@example.org\r\n"
    "Content-Type: multipart/mixed;\r\n"
    "\tboundary=\"MujheKaamBataoMaiKiaKaronMaiKisKoKhaon\"\r\n"
    "\r\n"
    "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon\r\n"
    "Content-Type: text/plain\r\n"
    "\r\n"
    "Text\r\n"
    "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon--\r\n";

/// The same with another text; `text` is what stands between the part's blank line and the next boundary.
inline std::string MessageWithText(const std::string& text) {
    return "Mime-Version: 1.0\r\n"
           "Subject: Subject\r\n"
           "From: ann@example.org\r\n"
           "Content-Type: multipart/mixed;\r\n"
           "\tboundary=\"MujheKaamBataoMaiKiaKaronMaiKisKoKhaon\"\r\n"
           "\r\n"
           "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon\r\n"
           "Content-Type: text/plain\r\n"
           "\r\n" +
           text +
           "\r\n"
           "--MujheKaamBataoMaiKiaKaronMaiKisKoKhaon--\r\n";
}

}  // namespace kvtest
