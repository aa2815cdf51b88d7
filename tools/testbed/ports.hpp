// SPDX-License-Identifier: GPL-2.0-or-later
// Ports on loopback. Who has one is read from the system's tables: trying it would be taken for a
// caller by a server that serves just one.
#pragma once

namespace corvane::test {

// A TCP port that nobody listens on. Throws when there is none.
int free_port();

bool is_tcp_port_listening(int port);
bool is_udp_port_bound(int port);

} // namespace corvane::test
