#include "Eventually.h"

#include <thread>

namespace kvtest {

bool Eventually(const std::function<bool()>& predicate, std::chrono::milliseconds bound) {
    const auto deadline = std::chrono::steady_clock::now() + bound;
    while (!predicate()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        // Between two looks: the predicate may be about another process, which wakes nobody here.
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace kvtest
