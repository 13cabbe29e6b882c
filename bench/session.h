// The library's side: a handle that is connected to a controller.
#ifndef BENCH_SESSION_H
#define BENCH_SESSION_H

#include "bench/peer.h"
#include "client/vexo.h"

namespace bench {

// Handle, connection, negotiation, catalogue and recipes: everything but the start of the output.
// Modes are those of vexo_create(). `interface`: of the frames, where it is not the controller's.
uint32_t open_session(const Peer& peer, int64_t mode, uint32_t nack = 0,
                      const std::string& interface = {});

// Runs the receive thread beside the controller, so that the application's processor is free.
void start_output(uint32_t handle);

// The connection for set-points of a handle, which its benches look at when a reply came late.
int control_socket(uint32_t handle);

}  // namespace bench

#endif
