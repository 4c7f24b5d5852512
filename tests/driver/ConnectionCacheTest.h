#pragma once

#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <vector>

#include "driver/FrameworkDoubles.h"

namespace kvtest {

/// A driver whose connection cache is ready and empty; it has no pool.
class KvConnectionCacheTest : public FrameworkTest {
protected:
    /// Several handed-out connections of one key.
    std::vector<KvConn*> Take(const std::string& key, int count) {
        std::vector<KvConn*> conns;
        for (int taken = 0; taken < count; ++taken) {
            conns.push_back(m_driver.Take(key));
            EXPECT_NE(conns.back(), nullptr);
        }
        return conns;
    }
    void Release(const std::vector<KvConn*>& conns) {
        for (KvConn* conn : conns) {
            m_driver.ReleaseConnToCache(conn);
        }
    }
    /// An idle connection of `key` that was handed out at `lastUsed`.
    void AddIdle(const std::string& key, time_t lastUsed) {
        KvConn* const conn = m_driver.Take(key);
        ASSERT_NE(conn, nullptr);
        conn->m_tLastUsed = lastUsed;
        m_driver.ReleaseConnToCache(conn);
    }
    Strings Notes() const { return NotesFrom(m_host.log, kPoolSource); }
    unsigned int Count(const std::string& key) { return m_driver.m_mapConnCache[key].m_nConnCount; }
};

}  // namespace kvtest
