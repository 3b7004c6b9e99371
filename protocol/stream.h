// Full-length reads and writes on a stream descriptor, and the socket that both sides of TCP start from.
#pragma once

// Reads COUNT bytes. Returns the number read, or -1 when the stream ended or failed. A non-blocking
// descriptor that has nothing more gives the short count read so far, 0 included.
int qelc_readn(int fd, void *buf, int count);

// Writes COUNT bytes, trying again for as long as the descriptor is merely full. Returns COUNT, or -1.
int qelc_writen(int fd, const void *buf, int count);

// A new IPv4 stream socket, close-on-exec, with SO_REUSEADDR. The caller closes it. -1 on failure.
int reused_sock();
