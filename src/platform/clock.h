#pragma once

#include "platform/date.h"

namespace kora {

// Where the daemon reads the time. The check sequence and the notices read it
// through this interface so that tests can move time on without waiting.
class Clock {
  public:
    virtual ~Clock() = default;
    virtual Date now() const = 0;
};

// The system's wall clock.
class SystemClock final : public Clock {
  public:
    Date now() const override { return kora::now(); }
};

}  // namespace kora
