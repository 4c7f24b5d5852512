#pragma once

/// The host's description of the messenger instance, passed to Setup. The driver hands it on and never reads
/// it; hosts derive from it.
class KvMessengerInstConfBasic {
public:
    virtual ~KvMessengerInstConfBasic() = default;
};
