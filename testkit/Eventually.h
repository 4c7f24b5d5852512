#pragma once

#include <chrono>
#include <functional>

namespace kvtest {

/// Asks `predicate` every millisecond until it holds; false when `bound` has passed without. For things that
/// give no sign of a change; where there is a condition to wait on, wait on that.
///
///     EXPECT_TRUE(Eventually([&] { return OpenDescriptorCount() == before; }));
bool Eventually(const std::function<bool()>& predicate,
                std::chrono::milliseconds bound = std::chrono::milliseconds(10000));

}  // namespace kvtest
