// Puts the program's main thread into the multithreaded apartment, and with it every thread of the tests that
// enters none, before the loggers of the module's files enter one of their own: a class that a test registers
// is then known to all.

#include "PlatformCom.h"

namespace {

struct MultithreadedApartment {
    MultithreadedApartment() { CoInitializeEx(nullptr, COINIT_MULTITHREADED); }
};

__attribute__((init_priority(101))) const MultithreadedApartment g_apartment;

} // namespace
