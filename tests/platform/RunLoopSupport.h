#pragma once

#include <dmf/platform/RunLoop.h>

/// What the tests of run loops have in common.
namespace runlooptest {

inline constexpr const char* kMode = "test mode";

/// A bound for everything that ought to end by itself.
inline dmf::Date soon()
{
    return dmf::Date::afterNow(10);
}

/// Runs what is due, without waiting.
inline dmf::RunLoop::Result turn(std::string_view mode = kMode)
{
    return dmf::RunLoop::current()->runMode(mode, dmf::Date::distantPast());
}

} // namespace runlooptest
