#pragma once

#include <string>
#include <vector>

// The free string, number and time functions. Thread-safe on different texts, except
// KvstringConvertAsciiToStr().
//
// A function that takes a char* to change works in place on a NUL-terminated buffer, which it never
// lengthens. White space and printable characters are what isspace and isprint accept.

// Replacement

/// Replaces `what` by `with` in `text`, always the leftmost occurrence, until none is left; what a
/// replacement forms with its neighbours is replaced too. REQUIRES: `what` is not empty and does not occur in
/// `with`.
void findandreplace(std::string& text, const std::string& what, const std::string& with);

/// Replaces every character `what` by `with`: "a.b." with '.' and '-' becomes "a-b-".
void KvstringReplaceChar(char* text, char what, char with);
std::string KvstringReplaceChar(const std::string& text, char what, char with);
/// Replaces every character that is one of `chars` by `with`: "a.b,c" with ".," and '-' becomes "a-b-c".
std::string KvstringReplaceCharAnyOf(const std::string& text, const std::string& chars, char with);
/// Replaces every `what`, taken from the left without overlaps, by `with`; other than findandreplace(), it
/// does not look at what it has put in: "aaa" with "aa" and "aab" becomes "aaba". An empty `what` occurs
/// nowhere.
std::string KvstringReplaceStr(const std::string& text, const std::string& what, const std::string& with);
/// Replaces every colon by `with`: "12:30" with '-' becomes "12-30".
std::string KvstringReplaceColon(const std::string& text, char with);

// Cleaning. A function that returns a string leaves `text` as it is.

/// The digits 0 to 9 of `text`, without everything else: "+1 (555) 010" becomes "1555010".
std::string KvstringCleanNumeric(const std::string& text);
/// Removes the characters that are not printable, line ends among them: "a\tb\x01 c\r\n" becomes "ab c".
void KvstringCleanText(char* text);
std::string KvstringCleanText(const std::string& text);
/// Removes all white space: " a b\n" becomes "ab".
std::string KvstringRemoveSpaceChars(const std::string& text);
/// Removes every character that is one of `chars`, wherever it stands: "-a-b-" without "-" becomes "ab".
std::string KvstringStrip(const std::string& text, const std::string& chars);
/// Removes the last character: "abc" becomes "ab". An empty text stays empty.
void KvstringChop(char* text);

// Case and comparison. Upper and lower case are what toupper and tolower make; a NULL is not allowed.

std::string KvstringUpperCase(const std::string& text);
std::string KvstringLowerCase(const std::string& text);
/// Compares two texts ignoring case: 0 when they are equal, else negative or positive as `left` stands before
/// or behind `right`.
int KvstringNoCaseCmp(const char* left, const char* right);
/// The same for at most the first `count` characters: 0 for "Mail1", "MAIL2" and 4.
int KvstringNoCaseNCmp(const char* left, const char* right, unsigned int count);
/// The same for at most the last `count` characters, compared from the end backwards: 0 for "a.TXT", "b.txt"
/// and 4.
int KvstringReverseNoCaseNCmp(const char* left, const char* right, unsigned int count);
/// Points to the leftmost `what` in `text`, ignoring case: at "Mail" for "e-Mail" and "MAIL". NULL when there
/// is none; an empty `what` is found at the start.
const char* KvstringFindNoCaseSubstring(const char* text, const char* what);
/// The same for a text to find that is in upper case already, which saves a copy of it in every search.
/// REQUIRES: `upperCased` has no lower-case letter; one that it has matches nothing.
const char* KvstringFindNoCaseSubstringQuick(const char* text, const char* upperCased);

// Bounded copies of message texts

/// Copies as much of `message` as fits the `outSize` bytes of `out` with a NUL behind it; the number of
/// characters copied. With an `outSize` of 0 nothing is written. The two must not overlap.
unsigned int KvstringMsgCpy(char* out, const char* message, unsigned int outSize);
/// The same, and fills the rest of `out` with NULs, for records of a fixed width.
unsigned int KvstringMsgCpy2(char* out, const char* message, unsigned int outSize);
/// At most the first `most` characters of `message`: "abc" and 2 give "ab".
std::string KvstringCopyMsg(const char* message, unsigned int most);

// Rendering

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

/// Undoes KvstringConvertAsciiToStr(): the code of "<NL>" is 10, of "<7f>" 127, of "A" 65. -1 when `name` is
/// none of the texts that it answers.
int KvstringConvertStrToAscii(const std::string& name);

/// KvstringSafeByteString() of a whole text: "a\r\n" becomes "a<CR><LF>".
std::string KvstringSafeString(const std::string& text);

/// Doubles every "%", so that printf shows the text as it is: "100%" becomes "100%%".
std::string KvstringEscapePrintfString(const std::string& text);

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
std::string KvstringSQLFilterEncode(unsigned int value);
std::string KvstringSQLFilterEncode(unsigned long value);
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

/// Six decimals: 2.5 is "2.500000".
std::string KvdblToStr(double value);
/// The given number of decimals: 2.5 with 2 is "2.50". REQUIRES: `decimals` is not negative.
std::string KvdblToStr(double value, int decimals);

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
/// The bytes themselves, as many as there are pairs; `count` receives their number. "01ff" gives 1 and 255.
std::vector<unsigned char> KvHexStrToBytes(const std::string& hex, int& count);

/// Replaces `out` by the parts of `text` between runs of the characters of `delimiters`; no part is empty.
/// `text` ends at its first NUL byte.
void KvstringTokenize(const std::string& text, const std::string& delimiters, std::vector<std::string>& out);

/// strtok with the place to go on from kept in `*rest`, so that several texts can be cut at a time: the next
/// part of `text` between runs of `delimiters`, NULL when there is none. `text` is NULL from the second call
/// on. The parts point into the text, whose delimiters become NULs.
char* KvstringSafeStrTok(char* text, const char* delimiters, char** rest);

/// The part number `index`, from 0, of those that KvstringTokenize() gives; empty when there are fewer.
/// "a,b,c" with "," and 1 gives "b".
std::string KvstringNStrTok(const std::string& text, const std::string& delimiters, unsigned int index);

/// Replaces `out` by the fields of `text` between the separators, without the empty ones when `skipEmpty`.
///
/// Compatibility: an empty field behind the last separator is never there, whatever `skipEmpty` says.
/// Relied on by: lists that end with a separator.
/// Held by: KvStringTest.SplitStringNeverGivesAnEmptyLastField.
void KvstringSplitString(const std::string& text, char separator, std::vector<std::string>& out,
                         bool skipEmpty);

/// The parts behind each other with `separator` between them: "a", "b" with ", " gives "a, b".
std::string KvstringJoin(const std::vector<std::string>& parts, const std::string& separator);

/// The texts of an array that ends with a NULL, as the argv of main does.
std::vector<std::string> BuildStringVector(const char* const* texts);

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

std::string KvstringCreatePath(const std::string& dir, const std::string& name);

/// The last directory that `path` names, which is the component before its last "/": "/var/mail/in.txt" and
/// "/var/mail/" give "mail". Empty when there is none.
std::string GetLastSubDirFromPath(const std::string& path);

/// `path` without its "." and ".." and its empty components, so that it leads nowhere above its beginning:
/// "/a/./../b//c/" becomes "/a/b/c".
std::string KvstringPathFilter(const std::string& path);

// Command lines

/// `argument` in double quotes, with a backslash before each double quote and backslash of it: one argument
/// for BuildCommandLineArguments(), whatever it holds. `a "b"` becomes `"a \"b\""`.
std::string KvstringArgumentEncode(const std::string& argument);

/// The arguments of a command line, which white space separates. In double quotes, which are not part of the
/// argument, white space does not; two of them alone are an empty argument, and the last one may be missing.
/// A backslash before a double quote or a backslash makes that an ordinary character. `mail -s "a b"` gives
/// `mail`, `-s` and `a b`.
std::vector<std::string> BuildCommandLineArguments(const std::string& commandLine);

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
