#pragma once

#include <deque>

#include "KvconLock.h"

class KvMessageFile;

/// The host's return queue for finished message files. Externally synchronised: every writer and the host's
/// reader hold m_lock while they touch m_dqMsgFiles.
class KvMessageFileQueue {
public:
    /// Finished files, oldest first; the driver appends at the back.
    std::deque<KvMessageFile*> m_dqMsgFiles;
    KvconLock m_lock;
};
