#pragma once

#include <list>

class KvMessageFile;

/// The files that the calling thread has handed to a dispatcher and that have not been pushed back yet. One
/// object at a time per thread; it lives while the dispatch operation runs.
///
/// It answers one question when a dispatch is left early, by an exception or because its worker is ended: which
/// of these files does the host still miss? Pushing a file back strikes it off the list.
class KvFilesUnderWay {
public:
    explicit KvFilesUnderWay(const std::list<KvMessageFile*>& files);
    ~KvFilesUnderWay();
    KvFilesUnderWay(const KvFilesUnderWay&) = delete;
    KvFilesUnderWay& operator=(const KvFilesUnderWay&) = delete;

    /// The files that have not been pushed back.
    const std::list<KvMessageFile*>& Missing() const { return m_lstMissing; }

    /// The first of them, which is struck off; null when there is none. Needs no memory.
    KvMessageFile* TakeMissing();

    /// Called by every push back, on whatever thread; does nothing on a thread without files under way.
    static void NoteHandedBack(KvMessageFile* file);

private:
    std::list<KvMessageFile*> m_lstMissing;
    KvFilesUnderWay* const m_pOuter;
};
