#pragma once

#include <unistd.h>

/// Remembers the process in which it was made. A child that was forked from that process has a copy of each
/// object, but neither the threads behind it nor a connection to the GPU of its own: what such an object stands
/// for can only be left alone there, not used, waited for or destroyed.
class MakerProcess {
public:
    /// False in a child of the process that made the object.
    bool isThisOne() const { return getpid() == mId; }

private:
    pid_t mId = getpid();
};
