// What the scenarios act on: files, connections, processes, servers, a far host and hardware.
#pragma once

#include <optional>
#include <string>

#include "support/daemon.h"
#include <cstdio>

namespace torture {

// Once a program: a cable to the host 10.1.0.1 behind eth1, servers on the loopback, the simulated
// hardware, and programs in /bin.
void open_world();

// Before each run: the files of /tmp and /var, and no route but the kernel's own.
void build_world();

// After each run: closes what prepare opened.
void clean_up();

// For prepare.
void open_file();     // `fd` is /tmp/f, open for reading and writing
void open_socket();   // `fd` is an unconnected TCP socket
void open_datagram(); // `fd` is a UDP socket with a datagram of 4 bytes to receive
void open_stream();   // `stream` is /tmp/f
void start_daemon();  // "victim", with its pid in /tmp/pid; one for all that ignores SIGUSR1
void doom_daemon();   // the same for a run that ends it
void add_routes();    // 10.2.0.0/16, 10.3.0.1 and the default route, by 10.1.0.1

inline int fd = -1;
inline FILE *stream = nullptr;
inline std::optional<lab::Daemon> victim;

inline std::string image;

} // namespace torture
