#include "KvFilesUnderWay.h"

namespace {

/// In the initial block of a thread's variables: a block made at first use ends the process when memory is short.
[[gnu::tls_model("initial-exec")]] thread_local KvFilesUnderWay* t_current = nullptr;

}  // namespace

KvFilesUnderWay::KvFilesUnderWay(const std::list<KvMessageFile*>& files)
    : m_lstMissing(files), m_pOuter(t_current) {
    t_current = this;
}

KvFilesUnderWay::~KvFilesUnderWay() {
    t_current = m_pOuter;
}

KvMessageFile* KvFilesUnderWay::TakeMissing() {
    if (m_lstMissing.empty()) {
        return nullptr;
    }
    KvMessageFile* const file = m_lstMissing.front();
    m_lstMissing.pop_front();
    return file;
}

void KvFilesUnderWay::NoteHandedBack(KvMessageFile* file) {
    if (t_current != nullptr) {
        t_current->m_lstMissing.remove(file);
    }
}
