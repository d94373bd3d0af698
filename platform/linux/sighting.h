// Inside the provider: what a delete iterator has just learnt of an object, so that its delete need not ask
// again.
//
// One sighting a thread is remembered, and only of objects in a folder without any sidecar. It is believed
// while the object's change time stands, which must have been clearly past when the object was seen, and
// while these operations have made no sidecar anywhere.
#pragma once

#include "platform/linux/references.h"

#include <cstdint>

// Remembers the lock of the object that `ref` stands for. `sidecarsMade` is the count from before its folder
// was read and found without sidecars.
void RememberSighting(const FSRef& ref, const Place& place, bool isLocked, uint64_t sidecarsMade);

// Whether the object is the one last seen and all that was seen still holds: its lock, and that it has no
// sidecar.
bool RecallSighting(const FSRef& ref, const Place& place, bool& isLocked);
