// A private world for a test or benchmark program: its own mounts with empty /var, /tmp and /run,
// its own /dev, network (loopback up, nothing else) and process tree.
#pragma once

namespace lab {

// Goes on in that world; the calling process only waits and passes the exit status on. Needs root
// or unprivileged user namespaces; without either it says so and exits with status 1.
void enter_sandbox();

} // namespace lab
