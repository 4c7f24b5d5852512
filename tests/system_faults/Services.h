#pragma once

#include <optional>

namespace kvtest {

/// While this lives, every look-up of a service finds this port, or nothing. One at a time.
class ServiceLookup {
public:
    explicit ServiceLookup(std::optional<int> port);
    ~ServiceLookup();

    ServiceLookup(const ServiceLookup&) = delete;
    ServiceLookup& operator=(const ServiceLookup&) = delete;
};

}  // namespace kvtest
