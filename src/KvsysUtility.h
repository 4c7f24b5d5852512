#pragma once

#include <string>

/// Questions about this host. Thread-safe.
class KvsysUtility {
public:
    KvsysUtility() = default;
    virtual ~KvsysUtility() = default;

    /// Whether the address `ip` is configured on an interface of this host, as "ifconfig -a" lists them. False
    /// for an empty text and for one of more than 15 characters, without a look; false when ifconfig is missing.
    ///
    /// Compatibility: `ip` goes to a shell and to grep as it is: a dot stands for any character, the match
    /// may begin inside a longer number, and what else the listing has before a space matches too. Never pass a
    /// text that comes from outside. Relied on by: hosts that look for interface names in the same way.
    /// Held by: KvsysUtilityTest.TheTextIsAPatternThatMayBeginAnywhere.
    static bool VerifyIP(const std::string& ip);
};
