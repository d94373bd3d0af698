// Threads that hand their results over.
#pragma once

// Starts workers suspended, lets them go, and collects what they make through events and semaphores.
void ShowWorkers();
