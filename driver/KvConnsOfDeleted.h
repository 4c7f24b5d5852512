#pragma once

#include <list>

#include "KvSmartAsynProtocolDriverMultiThreaded.h"

/// The connections of the delegates that the calling thread deletes while this object lives. Their owner closes them
/// afterwards. One object at a time per thread.
class KvSmartAsynProtocolDriverMultiThreaded::ConnsOfDeleted {
public:
    ConnsOfDeleted();
    ~ConnsOfDeleted();
    ConnsOfDeleted(const ConnsOfDeleted&) = delete;
    ConnsOfDeleted& operator=(const ConnsOfDeleted&) = delete;

    /// Takes the connection; false when there is no object for the calling thread.
    static bool Collect(KvConn* conn);
    const std::list<KvConn*>& All() const { return m_lstConns; }

private:
    std::list<KvConn*> m_lstConns;
};
