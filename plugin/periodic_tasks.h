// The periodic schedule. The plug-in has no timer: periods are lower bounds that depend on the host's calls.
#pragma once

namespace kv {

// Runs what is due. Returns the result of the last task of the table, 0 when it was not due.
int mainLoop();

// Makes every task due, as at start.
void resetPeriodicTasks();

}  // namespace kv
