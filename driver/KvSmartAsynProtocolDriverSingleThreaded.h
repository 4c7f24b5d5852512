#pragma once

#include <list>

#include "KvSmartAsynProtocolDriver.h"

/// The threading variant for drivers that need no parallelism: a session's groups are sent one after the other on
/// the calling thread, over the one connection that lies in the session itself (KvCarrierSess::m_sessConn).
///
/// The connection lives across cycles: opened on first use, tested at the start of every later processing,
/// replaced when the test fails. Nobody closes it at Cleanup; a concrete driver that wants that does it in
/// CleanupExt.
///
/// A concrete driver overrides ProcessCarrierSession(KvCarrierSess&, std::string&) itself and calls the
/// operation of this class from it.
///
/// One thread at a time, under the driver lock; intake stays thread-safe.
class KvSmartAsynProtocolDriverSingleThreaded : public KvSmartAsynProtocolDriver {
public:
    KvSmartAsynProtocolDriverSingleThreaded() = default;
    ~KvSmartAsynProtocolDriverSingleThreaded() override = default;

    using KvSmartAsynProtocolDriver::ProcessCarrierSession;

    /// Sends every group that waits in `session`, in order. False when there is no connection to be had; nothing
    /// was sent then. A group that could not be sent is logged and does not stop the others.
    ///
    /// The groups stay in the session: it is for the caller to empty it, or the cycle passes over it again.
    bool ProcessCarrierSession(KvCarrierSess& session);

    // Supplied by the concrete driver. `conn` is the session's record: its two handles are the driver's own.

    /// True when the open connection is still usable.
    virtual bool TestSessionConnection(KvSessionConn conn) = 0;
    /// Opens a connection, fills the record and sets m_bOpen; false when there is none to be had.
    virtual bool CreateSessionConnection(KvSessionConn& conn) = 0;
    /// Closes the connection. What it answers changes nothing: m_bOpen is cleared by the caller.
    virtual bool CloseSessionConnection(KvSessionConn& conn) = 0;
    /// Delivers one group and pushes each of its files back to the host, once, delivered or not.
    virtual bool SendSessionGroup(std::list<KvMessageFile*> group) = 0;

private:
    bool DeliverSession(KvCarrierSess& session);
    bool EnsureConnection(KvSessionConn& conn);
    bool IsConnectionUsable(KvSessionConn& conn);
    void DropConnection(KvSessionConn& conn);
};
