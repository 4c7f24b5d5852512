#include "KvconCriticalSection.h"

KvconCriticalSection::KvconCriticalSection()
    : m_pLock(new KvconLock), m_bDeleteLock(true), m_bUnlockOnExit(false) {}

KvconCriticalSection::KvconCriticalSection(KvconLock* lock, bool lockNow, bool unlockOnExit, bool deleteLock)
    : m_pLock(lock), m_bDeleteLock(deleteLock), m_bUnlockOnExit(unlockOnExit) {
    if (lockNow) {
        m_pLock->Lock();
    }
}

KvconCriticalSection::~KvconCriticalSection() {
    if (m_bUnlockOnExit) {
        m_pLock->Unlock();
    }
    if (m_bDeleteLock) {
        delete m_pLock;
    }
    m_pLock = nullptr;
}

bool KvconCriticalSection::Enter() {
    return m_pLock->Lock() == KvconLock::LOCK_ACQUIRED;
}

bool KvconCriticalSection::Leave() {
    m_pLock->Unlock();
    return true;
}
