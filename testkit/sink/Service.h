#pragma once

#include "Counters.h"
#include "MailStore.h"
#include "Options.h"
#include "TlsContext.h"

namespace kvsink {

/// What all connections of one server share. Used by the server's thread only, but for the counters.
struct Service {
    const Options& options;
    Counters& counters;
    MailStore* store = nullptr;       ///< null: mails are counted only
    const TlsContext* tls = nullptr;  ///< null: no STARTTLS
};

}  // namespace kvsink
