#pragma once

#include <functional>

namespace kvtest {

/// Runs `before`, which may throw, ahead of every KvEmailDriver::Close() of the driver while it lives. The
/// engine's own Close() throws nothing; only this program, which is linked so that the driver's calls come
/// here first, can make it. One at a time, on the thread of the test.
class InterceptedClose {
public:
    explicit InterceptedClose(std::function<void()> before);
    ~InterceptedClose();
    InterceptedClose(const InterceptedClose&) = delete;
    InterceptedClose& operator=(const InterceptedClose&) = delete;
};

}  // namespace kvtest
