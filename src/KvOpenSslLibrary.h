#pragma once

/// Process-wide preparation of OpenSSL. Thread-safe.
class KvOpenSslLibrary {
public:
    /// Gives OpenSSL the C allocator (ignored when it has allocated already), and loads its texts, ciphers
    /// and digests. Only the first call does anything; the others return when it is done.
    static void InitializeOnce();
};
