#include "Tests/HelpTool/BusCalls.hpp"

#include <dlfcn.h>

namespace sorrel::test {
namespace {

/// The library's own function, which the one of this file shadows.
template <class Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

BusCalls& busCalls() {
  static BusCalls& instance = *new BusCalls;  // a connection's thread may end after the last test, or main
  return instance;
}

}  // namespace sorrel::test

// These shadow the functions of libsystemd, so that every call to the bus passes here. The signatures are
// those of <systemd/sd-bus.h>, with void for parameters that are only passed on.
extern "C" [[gnu::visibility("default")]] int sd_bus_call(void* bus, void* message, std::uint64_t timeout,
                                                          void* error, void** reply) {
  sorrel::test::busCalls().note(timeout);
  return sorrel::test::next<decltype(sd_bus_call)>("sd_bus_call")(bus, message, timeout, error, reply);
}

extern "C" [[gnu::visibility("default")]] int sd_bus_call_async(void* bus, void** slot, void* message,
                                                                void* callback, void* userData,
                                                                std::uint64_t timeout) {
  sorrel::test::busCalls().note(timeout);
  return sorrel::test::next<decltype(sd_bus_call_async)>("sd_bus_call_async")(bus, slot, message, callback,
                                                                              userData, timeout);
}
