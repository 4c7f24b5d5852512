#pragma once

#include <functional>

// Failures of the engine that the engine itself never has. The program is linked so that the driver's calls of
// the operations below come here first; calls inside the engine do not.

namespace kvtest {

enum class EngineCall {
    Close,   ///< KvEmailDriver::Close()
    IsAlive  ///< KvEmailDriver::IsAlive()
};

/// Runs `before`, which may throw, ahead of every such call while it lives. One at a time, on the thread of the
/// test.
class InterceptedCall {
public:
    InterceptedCall(EngineCall call, std::function<void()> before);
    ~InterceptedCall();
    InterceptedCall(const InterceptedCall&) = delete;
    InterceptedCall& operator=(const InterceptedCall&) = delete;
};

}  // namespace kvtest
