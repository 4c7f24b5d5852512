#pragma once

/// Empty polymorphic root of the concurrency, I/O and resource classes. Immutable: it holds nothing.
class Kvobject {
public:
    virtual ~Kvobject() = default;

    Kvobject() = default;
    Kvobject(const Kvobject&) = default;
    Kvobject& operator=(const Kvobject&) = default;
};
