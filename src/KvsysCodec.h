#pragma once

#include <array>
#include <string>

/// The text encodings: Base64, URL and name escapes, XML, HTML and web-form entities, JSON escapes, line
/// marks.
///
/// Thread-safe, apart from the first EncodeXmlData() or DecodeWebInputData() call that cuts its process-wide
/// table: from then on the calls of every thread see the shorter table.
///
/// Every operation is static and works on bytes; no character set is converted. None throws of its own
/// accord. A parameter of type std::string may hold NUL bytes unless the operation says otherwise.
class KvsysCodec {
public:
    KvsysCodec() = default;
    virtual ~KvsysCodec() = default;
    KvsysCodec(const KvsysCodec&) = default;
    KvsysCodec& operator=(const KvsysCodec&) = default;

    // Base64 (RFC 4648, section 4)

    /// Base64 of `len` bytes, with CR LF after every 76 characters and at the end. Empty for no data.
    ///
    /// Compatibility: the line breaks are written whatever `lineBreaks` says.
    /// Relied on by: the SMTP authentication, which sends the result as a complete command line.
    /// Held by: KvsysCodecTest.EncodeBase64ToAStringBreaksLinesWhateverItsFlagSays.
    static std::string EncodeBase64(unsigned char* data, int len, bool lineBreaks);

    /// Base64 of `len` bytes into `out`, with the line breaks only if `lineBreaks`. False, and `out` empty,
    /// for no data.
    static bool EncodeBase64(unsigned char* data, int len, std::string& out, bool lineBreaks);

    /// Decodes the `len` characters of `buf` in place, sets `len` to the number of bytes and puts a NUL
    /// behind them (a `len` of 0 leaves `buf` untouched). White space is skipped and "=" ends the text. False
    /// when any other character was met or a single character was left over; what could be decoded is
    /// delivered all the same.
    static bool DecodeBase64(unsigned char* buf, int& len);

    // URLs and names

    /// Form-style percent-encoding: digits, letters and "_" stay, a space becomes "+", every other byte
    /// "%" and two upper-case hexadecimal digits.
    static std::string EncodeUrl(const std::string& text);

    /// Undoes EncodeUrl() up to the first NUL byte.
    ///
    /// Compatibility: a "%" with fewer than two characters behind it makes the whole result empty; two
    /// characters that are not hexadecimal digits give a NUL byte.
    /// Relied on by: callers that take an empty result for a truncated request.
    /// Held by: KvsysCodecTest.DecodeUrlOfATruncatedEscapeIsEmpty.
    static std::string DecodeUrl(const std::string& text);

    /// Percent-encodes the NUL-terminated `in` into `out`, which has room for `outSize` bytes. Letters,
    /// digits and "/_." stay; a line feed that follows no carriage return gets one. Stops once fewer than 5
    /// bytes of room are left; `out` is terminated after every step, and stays untouched when `in` is empty
    /// or `outSize` is below 5.
    ///
    /// Compatibility: bytes of 0x80 and above all become "%FF".
    /// Relied on by: servers that match the encoded names byte for byte.
    /// Held by: KvsysCodecTest.HttpStrEncodeTurnsEveryHighByteIntoPercentFF.
    static void KvhttpStrEncode(char* out, int outSize, const char* in);

    /// Percent-encodes every byte but the ASCII letters and digits.
    ///
    /// Compatibility: bytes of 0x80 and above all become "%FF"; decoding does not bring them back.
    /// Relied on by: stored names, which were written in this form.
    /// Held by: KvsysCodecTest.EncodeNameTurnsEveryHighByteIntoPercentFF.
    static std::string EncodeName(const std::string& text);
    /// The same as EncodeName().
    static std::string EncodeFileName(const std::string& text);

    /// Replaces every "%" that has two characters behind it by the byte that they name in hexadecimal.
    static std::string DecodeName(const std::string& text);
    /// The same as DecodeName().
    static std::string DecodeFileName(const std::string& text);

    // XML and web forms

    /// XML entities for "&", ">", "<", apostrophe and double quote; the result ends at the first NUL byte.
    ///
    /// Compatibility: with `encodeWhitespace` a TAB becomes "&#xA;", a CR "&#xD;", and an LF "&#xD;" too, or
    /// nothing when the byte before or after it is a CR, so that a line end is one "&#xD;".
    /// Relied on by: readers of the stored documents, which take "&#xD;" for a line end.
    /// Held by: KvsysCodecTest.EncodeXmlGivesTabsTheLineFeedReferenceAndLineFeedsTheCarriageReturnOne.
    static std::string EncodeXML(const std::string& text, bool encodeWhitespace);

    /// XML entities for "&", ">", "<" and, when `fullSet`, apostrophe, double quote, TAB, LF and CR.
    ///
    /// Compatibility: the first call with `fullSet` false cuts the process's table to its first three rows
    /// for good; every later call encodes only these, whatever its flag. Relied on by: processes that choose
    /// the short set once, at their first document. Held by:
    /// KvsysCodecDeathTest.EncodeXmlDataWithTheShortSetCutsTheTableForGood.
    static std::string EncodeXmlData(const std::string& text, bool fullSet);

    /// Undoes EncodeXmlData(), row by row.
    ///
    /// Compatibility: "&amp;" is decoded first, so "&amp;lt;" becomes "<".
    /// Relied on by: documents that were encoded twice.
    /// Held by: KvsysCodecTest.DecodeXmlDataDecodesAnEscapedEntityToTheEnd.
    static std::string DecodeXmlData(const std::string& text);

    /// Entities for the text of a web form; a space becomes "&nbsp;" unless `keepSpaces`.
    static std::string EncodeWebInputData(const std::string& text, bool keepSpaces);

    /// Undoes EncodeWebInputData(); "&amp;" is decoded last, so "&amp;lt;" becomes "&lt;".
    ///
    /// Compatibility: the first call with `decodeNbsp` false takes "&nbsp;" out of the process's table for
    /// good; no later call decodes it, whatever its flag.
    /// Relied on by: processes that choose the form of their blanks once.
    /// Held by: KvsysCodecDeathTest.DecodeWebInputDataWithoutNbspDropsItForGood.
    static std::string DecodeWebInputData(const std::string& text, bool decodeNbsp);

    /// EscapeBackslash() of EncodeWebInputData().
    static std::string EncodeWebInputAndEscapeBackSlash(const std::string& text, bool keepSpaces);

    // HTML and line ends

    /// "<br>" for every CR LF and LF (and every "&#x0A;", when `convertEncodedLF`), "&quot;" for every double
    /// quote. "<", ">" and "&" stay.
    static std::string EncodeHTML(const std::string& text, bool convertEncodedLF);
    /// LF for every "<br>".
    static std::string DecodeHTML(const std::string& text);
    /// "<br>" for every CR LF and LF; a lone CR stays.
    static std::string EncodeNewLineCharacters(const std::string& text);

    /// "<CR>" and "<LF>" for CR and LF.
    static std::string EncodeMultiLineData(const std::string& text);
    /// CR and LF for "<CR>" and "<LF>".
    static std::string DecodeMultiLineData(const std::string& text);

    // JSON, backslashes, filters

    /// Escapes backslash, double quote, LF, CR and TAB as in RFC 8259; other control characters stay.
    static std::string EscapeJsonString(const std::string& text);
    /// Undoes EscapeJsonString(). Any other backslash stays; "\u" sequences are not decoded.
    static std::string UnescapeJsonString(const std::string& text);
    /// For a JSON text inside a JSON string: four backslashes for every two, three backslashes and a double
    /// quote for a backslash and a double quote.
    static std::string EscapeInternalJSON(const std::string& text);
    /// "<" and ">" for the sequences \u003c and \u003e, with lower-case letters only.
    static std::string EncodeUnicodeCharacters(const std::string& text);

    /// Doubles every backslash.
    static std::string EscapeBackslash(const std::string& text);

    /// Turns every pair of backslashes into one.
    ///
    /// Compatibility: the two characters behind the pair are dropped with it: four characters, or as many as
    /// there are, become one backslash. It does not undo EscapeBackslash().
    /// Relied on by: callers that pass a pair with a two-character code behind it.
    /// Held by: KvsysCodecTest.UnescapeBackslashDropsTheTwoCharactersBehindThePair.
    static std::string UnescapeBackslash(const std::string& text);

    /// Removes apostrophes, double quotes, CR and LF, which a speech engine would stumble over.
    static std::string EscapeTTSData(const std::string& text);
    /// A backslash before every underscore and backslash, for SQL LIKE filters.
    static std::string EncodeDBFilterInput(const std::string& text);

private:
    static const std::array<bool, 128> m_isUrlSafe;  ///< indexed by the character code
    static const char m_hex[17];
};
