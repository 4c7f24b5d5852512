#pragma once

#include "Counters.h"
#include "Journal.h"
#include "MailStore.h"
#include "Options.h"
#include "TlsContext.h"

namespace kvsink {

/// What all connections of one server share. Used by the server's thread only, but for the counters.
struct Service {
    const Options& options;
    Counters& counters;
    MailStore* store = nullptr;        ///< null: mails are counted only
    const Journal* journal = nullptr;  ///< null: mails are not noted
    const TlsContext* tls = nullptr;   ///< null: no STARTTLS
};

}  // namespace kvsink
