// What tasks leave behind.
#pragma once

// Gives back the threads and records of tasks that have ended. Never blocks: one that has posted its message
// but is not quite gone stays for the next time.
void ReleaseEndedTasks() noexcept;
