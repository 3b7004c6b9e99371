// Serving one connection.
#pragma once

// Thread body: reads one request from the descriptor in FD_CELL (an int from new, which it frees), answers it
// and closes the connection. Detaches itself; returns null.
//
// A code with an empty slot ends the whole process with abort(); the supervisor starts a new one.
void *process_cmd(void *fd_cell);
