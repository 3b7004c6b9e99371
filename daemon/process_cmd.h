// Serving one connection.
#pragma once

// Thread body: reads one request from the descriptor that FD_CELL (an int from new) holds, answers it, closes
// the connection. Owns and frees the cell. Detaches itself; returns null.
//
// A code whose slot is empty ends the whole process by abort(): the supervisor starts a new one.
void *process_cmd(void *fd_cell);
