// Reaching the TCP connection under an HTTP request.
//
// Contract: the HTTP library hands handlers a request, not its socket. These functions find
// the socket by its two endpoints (the request's local and remote address and port) among
// the process's open descriptors. They act on the socket with shutdown(2), never close(2),
// so the HTTP library still owns and closes the descriptor and no descriptor is reused
// under its feet. Linux only (/proc/self/fd).
#pragma once

#include <httplib.h>

namespace nyb::devserver {

// The descriptor of the request's connection, or -1.
int connectionSocket(const httplib::Request& request);

// Ends the request's connection with no answer: the client sees the connection closed.
bool closeWithoutAnswer(const httplib::Request& request);

// Whether the request's connection has TCP_NODELAY set (false if not found).
bool hasNoDelay(const httplib::Request& request);

// Shuts the reading side of every accepted connection on `port`, so that idle keep-alive
// connections end at once when the server stops; answers being written still go out.
void endIdleConnections(int port);

}  // namespace nyb::devserver
