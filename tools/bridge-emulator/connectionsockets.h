#pragma once

namespace bridgeemu {

// The HTTP library hides the sockets of the connections it serves. These helpers find them
// among the process's descriptors by their addresses, for the two things the library does not
// offer.

// Shuts down, without closing, every accepted TCP connection of this process whose local port
// is `port`. An idle keep-alive connection holds its library thread until the keep-alive
// time-out; shutting the socket down wakes that thread at once, and the library then closes the
// descriptor itself. Listening sockets and outgoing connections (whose local port is an
// ephemeral one) are left alone.
void shutDownConnectionsOnPort(int port);

// Acknowledges at once what the connection from `remotePort` to `localPort` has received.
// Clients such as Qt send a request's headers and body in two writes and, under Nagle's
// algorithm, hold the body until the headers are acknowledged, which the kernel delays by some
// 40 ms. `knownSocket` (or -1) spares the search when the caller knows the descriptor.
void acknowledgeNow(int localPort, int remotePort, int knownSocket);

} // namespace bridgeemu
