#include "KvConnsOfDeleted.h"

namespace {

thread_local std::list<KvSmartAsynProtocolDriverMultiThreaded::KvConn*>* t_current = nullptr;

}  // namespace

KvSmartAsynProtocolDriverMultiThreaded::ConnsOfDeleted::ConnsOfDeleted() {
    t_current = &m_lstConns;
}

KvSmartAsynProtocolDriverMultiThreaded::ConnsOfDeleted::~ConnsOfDeleted() {
    t_current = nullptr;
}

bool KvSmartAsynProtocolDriverMultiThreaded::ConnsOfDeleted::Collect(KvConn* conn) {
    if (t_current == nullptr) {
        return false;
    }
    t_current->push_back(conn);
    return true;
}
