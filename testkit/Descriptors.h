#pragma once

#include <vector>

#include "ScopedDescriptor.h"

namespace kvtest {

/// How many descriptors this process has open now, whichever thread asks.
int OpenDescriptorCount();

/// Raises the soft limit of open descriptors to at least `wanted`. False when the hard limit is lower.
bool RaiseDescriptorLimit(unsigned wanted);

/// Occupies descriptors until every new one is at least `lowest`; frees them at the end. Immutable.
///
///     OccupiedDescriptors occupied(1100);
///     ... sockets made here have numbers that do not fit an fd_set ...
class OccupiedDescriptors {
public:
    /// Raises the limit where it must. Throws std::system_error when the system gives too few.
    explicit OccupiedDescriptors(int lowest);

private:
    std::vector<ScopedDescriptor> m_held;
};

}  // namespace kvtest
