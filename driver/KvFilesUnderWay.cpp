#include "KvFilesUnderWay.h"

namespace {

thread_local KvFilesUnderWay* t_current = nullptr;

}  // namespace

KvFilesUnderWay::KvFilesUnderWay(const std::list<KvMessageFile*>& files)
    : m_lstMissing(files), m_pOuter(t_current) {
    t_current = this;
}

KvFilesUnderWay::~KvFilesUnderWay() {
    t_current = m_pOuter;
}

void KvFilesUnderWay::NoteHandedBack(KvMessageFile* file) {
    if (t_current != nullptr) {
        t_current->m_lstMissing.remove(file);
    }
}
