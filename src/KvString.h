#pragma once

#include <string>
#include <vector>

// The free string, number and time functions. Thread-safe on different texts, except
// KvstringConvertAsciiToStr().
//
// A function that takes a char* to change works in place on a NUL-terminated buffer, which it never
// lengthens. White space and printable characters are what isspace and isprint accept.

// Replacement and rendering

/// Replaces `what` by `with` in `text`, always the leftmost occurrence, until none is left; what a
/// replacement forms with its neighbours is replaced too. REQUIRES: `what` is not empty and does not occur in
/// `with`.
void findandreplace(std::string& text, const std::string& what, const std::string& with);

/// Backslash-escaped rendering of `len` raw bytes; it ends once more than 4090 characters are written. TAB,
/// LF and CR stay, NUL is "\0", other bytes that are not printable ASCII a backslash and two hexadecimal
/// digits.
///
/// Compatibility: from the first backslash on, every remaining byte is rendered as two backslashes.
/// Relied on by: log readers that take a run of backslashes for the rest of a record.
/// Held by: KvStringTest.EscapeStringStaysAtTheFirstBackslash.
std::string KvstringEscapeString(unsigned char* data, int len);

/// The name of one character, as "<NL>"; the character itself when it is printable, else its hexadecimal code
/// in angle brackets. One thread at a time: the result is a static buffer, which the next call overwrites.
///
/// Compatibility: DEL has no name; 127 is "<7f>".
/// Relied on by: log readers that match the rendered characters byte for byte.
/// Held by: KvStringTest.ConvertAsciiToStrRendersDelByItsCode.
const char* KvstringConvertAsciiToStr(int c);

// SQL literals and filters

/// Doubles every apostrophe; the result ends at the first NUL byte.
std::string KvstringSQLEncode(const std::string& text);
/// The number's text; floating-point numbers have six decimals.
std::string KvstringSQLEncode(int value);
std::string KvstringSQLEncode(long value);
std::string KvstringSQLEncode(unsigned long value);
std::string KvstringSQLEncode(unsigned int value);
std::string KvstringSQLEncode(float value);
std::string KvstringSQLEncode(double value);

/// For LIKE patterns: doubles apostrophes and backslashes, puts a backslash before "%", "_" and "[".
std::string KvstringSQLLikeEncode(const std::string& text);

/// The form for a WHERE clause: KvstringSQLEncode() of the value, but "%", which matches anything, for an
/// empty text or zero.
std::string KvstringSQLFilterEncode(const std::string& text);
std::string KvstringSQLFilterEncode(int value);
std::string KvstringSQLFilterEncode(float value);
std::string KvstringSQLFilterEncode(double value);

// Numbers as text

std::string KvintToStr(int value);
std::string Kvint64ToStr(long long value);
std::string KvuintToStr(unsigned int value);
std::string KvlongToStr(long value);

/// Compatibility: only the low 32 bits of `value` are shown.
/// Relied on by: readers that take the number for an unsigned 32-bit one.
/// Held by: KvStringTest.UlongToStrShowsTheLow32Bits.
std::string KvulongToStr(unsigned long value);

// Times as text. `t` is in seconds since the epoch; all texts are in local time and empty when `t` has no
// date.

/// Compatibility: "MM/DD/YYYY hh:mm:ss", the month first.
/// Relied on by: databases that read this form.
/// Held by: KvStringTest.SqlTimePutsTheMonthFirst.
std::string KvstringSQLTime(long t);
/// KvstringSQLTime(), but "%" when `t` is 0.
std::string KvstringSQLFilterTime(long t);
/// The 24 characters of ctime, without its newline.
std::string KvstringSQLCTime(long t);
/// strftime of `t`; empty when the result does not fit 79 characters.
std::string KvstringGetDate(long t, const std::string& format);
/// The same for the current time.
std::string KvstringGetDate(const std::string& format);

/// Compatibility: 0, whatever `text` ("YYYY-MM-DD hh:mm:ss") says.
/// Relied on by: callers that store 0 for a time that comes from the database.
/// Held by: KvStringTest.SqlGetTimeIsAlwaysZero.
long KvstringSQLGetTime(const std::string& text);

// Parsing, classification and lists

/// 0 text, 1 integer, 2 decimal: an optional sign, then digits with at most one "." among them.
///
/// Compatibility: a lone sign is an integer, a lone "." a decimal.
/// Relied on by: importers that choose a column's type by its first value.
/// Held by: KvStringTest.DeduceDataTypeTakesALoneSignForAnInteger.
int KvdeduceDataType(const std::string& text);

/// True when every character is a digit.
///
/// Compatibility: an empty text is numeric.
/// Relied on by: callers that treat a missing number as a number.
/// Held by: KvStringTest.IsNumericIsTrueForAnEmptyText.
bool KvstringIsNumeric(const std::string& text);

/// The hexadecimal number that `text` begins with; 0 when there is none, the largest number when it is too
/// large.
unsigned int KvHexStrToUInt(const std::string& text);

/// Converts each pair of characters of `hex` into a byte of `out` and fills the rest of `outSize` bytes with
/// zeros. The number of bytes converted; 0, with `out` untouched, when they do not fit. A last single
/// character is ignored, and a pair that is no number gives 0.
int KvHexStrToBytes(const std::string& hex, unsigned char* out, int outSize);

/// Replaces `out` by the parts of `text` between runs of the characters of `delimiters`; no part is empty.
/// `text` ends at its first NUL byte.
void KvstringTokenize(const std::string& text, const std::string& delimiters, std::vector<std::string>& out);

/// Replaces `out` by the fields of `text` between the separators, without the empty ones when `skipEmpty`.
///
/// Compatibility: an empty field behind the last separator is never there, whatever `skipEmpty` says.
/// Relied on by: lists that end with a separator.
/// Held by: KvStringTest.SplitStringNeverGivesAnEmptyLastField.
void KvstringSplitString(const std::string& text, char separator, std::vector<std::string>& out,
                         bool skipEmpty);

/// Index of the element equal to `text`, ignoring case; -1 when there is none.
///
/// Compatibility: of several, the last.
/// Relied on by: lists in which a later entry overrides an earlier one.
/// Held by: KvStringTest.FindAnswersTheLastOfSeveralEqualElements.
int KvFind(std::vector<std::string> list, const char* text);

/// Length of the run of `c` in `text` that ends at `pos`; 0 when there is another character or nothing.
unsigned int CountChracterBackwards(char c, std::string text, unsigned int pos);

// Trimming and paths

void KvstringTrimRight(char* text);
void KvstringTrimLeft(char* text);
void KvstringTrim(char* text);
/// The same as KvstringTrim().
void KvstringTrimSpaces(char* text);
/// Trims spaces and tabs only.
void KvstringTrimSpacesAndTabs(char* text);

/// Removes every character of `chars` (white space, when it is empty) from the named end or ends of `text`;
/// returns a copy of it.
std::string KvstringTrimRight(std::string& text, const std::string& chars);
std::string KvstringTrimLeft(std::string& text, const std::string& chars);
std::string KvstringTrim(std::string& text, const std::string& chars);

/// The part of `path` behind its last "/", or all of it. Points into `path`.
const char* GetFileName(const char* path);

/// Writes `dir` and `name` to `out` with a "/" between them, unless `dir` ends in one.
/// REQUIRES: `out` has room for both, two bytes more, and overlaps neither.
void KvstringCreatePath(char* out, char* dir, char* name);

// Patterns

/// True when `text` contains the pieces of `pattern` between its "*" one behind the other, and begins with
/// the first piece unless `pattern` begins with "*". The last piece need not end the text. No pattern, or
/// "*", matches anything; a pattern of white space only an empty text. At most 255 pieces are looked for.
///
/// Compatibility: `pattern` is upper-cased. With `collapseSpaces`, `text` is too, and each run of white space
/// in it counts as its first character; without, `text` is compared as it is, so its lower-case letters never
/// match. Relied on by: filters whose texts are upper case already. Held by:
/// KvStringTest.ContainPatternUpperCasesTheTextOnlyWhenItCollapsesSpaces.
bool KvstrContainPattern(const char* text, const char* pattern, bool collapseSpaces);
bool KvstrContainPattern(const std::string& text, const std::string& pattern, bool collapseSpaces);
