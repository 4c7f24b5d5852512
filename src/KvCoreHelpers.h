#pragma once

#include <string>

// The free functions that every other layer calls. All are re-entrant and hold no state.

/// printf-style formatting into a string; every log line is built with it.
///
/// Compatibility: the result is capped at 6143 characters (a 4095-character buffer and one retry of half as
/// much again); what is longer is cut. A formatting error gives an empty string.
/// Relied on by: hosts whose log records have a bounded length.
/// Held by: KvCoreHelpersTest.PrintfToStringCutsAt6143Characters.
[[gnu::format(printf, 1, 2)]] std::string printfToString(const char* format, ...);

/// Estimates the buffer size, terminator included, that formatting `format` with `args` needs.
///
/// `args` is the packed argument list: one machine word (the size of a pointer) per argument, as an i386
/// variadic call lays them out. Widths, precisions and floating-point conversions are under-counted.
int GetVPrintLength(const char* format, char* args);
/// The same as GetVPrintLength.
int KvGetVPrintLength(const char* format, char* args);

/// Printable rendering of raw socket or TLS traffic for the log: at most `len` bytes of `data`, and no more
/// than a 4 KB buffer of output.
///
/// Compatibility: a byte of 0x80 or above is rendered as "<FFF" (the first four characters of its
/// sign-extended value); the closing bracket is lost.
/// Relied on by: log readers that match the traffic lines byte for byte.
/// Held by: KvCoreHelpersTest.HighBytesAreRenderedAsTheFirstFourCharactersOfTheirSignExtendedValue.
std::string KvstringSafeByteString(char* data, int len);

/// pthread_self() of the caller.
unsigned long GetMyThreadID();

/// Sleeps for `milliseconds`; whole seconds and the rest are slept in two calls.
void Kvsleep(int milliseconds);

/// Sleeps for `seconds`.
void KvsleepSec(int seconds);

/// Wall clock in milliseconds, kept to 32 bits: it wraps about every 49.7 days, so use it for differences only.
/// 0 when the clock cannot be read.
unsigned long GetCurrTimeInMS();
