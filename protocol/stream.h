// Full-length reads and writes on a stream descriptor, and new TCP sockets.
#pragma once

#include "base/fd.h"

// Reads COUNT bytes. Returns the number read, or -1 if the stream ended or failed. If a non-blocking
// descriptor has no more data, returns the count so far, which may be 0. While it waits for the peer of a TCP
// connection, that is kept alive.
int qelc_readn(int fd, void *buf, int count);

// Writes COUNT bytes; retries while the descriptor is full. Returns COUNT, or -1.
int qelc_writen(int fd, const void *buf, int count);

// Lets the kernel notice within minutes that the peer of a TCP connection has vanished; the next read or
// write then fails (tcp(7)).
void keep_alive(int fd);

// A new IPv4 stream socket, close-on-exec, with SO_REUSEADDR; closed after a log line on failure.
unique_fd reused_sock();
