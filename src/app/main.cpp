// The vantler executable. For now it prints the demonstration hub's snapshot.

#include <cstdio>

#include "core/defaults.h"
#include "core/fake_loop.h"
#include "core/hub.h"
#include "core/linux_glib_loop.h"

int main() {
  GLibLoop loop;
  Defaults defaults;
  Hub hub(loop, defaults, {}, HubOptions{{}, std::nullopt, false});
  hub.loadDemo();
  std::puts(hub.snapshot().dump(2).c_str());
  return 0;
}
