#include "CallbackScope.h"

namespace KorvelVideo::Network {

namespace {
thread_local int t_depth = 0;
} // namespace

CallbackScope::CallbackScope() noexcept { ++t_depth; }

CallbackScope::~CallbackScope() { --t_depth; }

bool CallbackScope::isActive() noexcept { return t_depth != 0; }

} // namespace KorvelVideo::Network
