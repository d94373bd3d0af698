// Inside the provider: loading and storing the facts of an object that metadata keeps, wherever its volume
// keeps them.
#pragma once

#include "platform/catalog.h"
#include "platform/linux/appledouble.h"
#include "platform/linux/attributes.h"
#include "platform/linux/references.h"

// Which places are looked at besides the attribute, on a volume that has attributes.
enum class Look { kAttributeOnly, kFinderInfoInSidecar };

// The defaults where nothing is kept, or where it cannot be read or understood. -43 when the object is gone.
// `file` may be a descriptor of the object's data.
OSErr LoadFacts(const Place& place, Look look, appledouble::Facts& facts, int file = -1);

// CheckUnlocked through a descriptor of the object's data.
OSErr CheckUnlocked(const Place& place, int file, OSErr refusal);

// Stores those of the selected facts that live in metadata, lending the owner the right to write where the
// mode denies it. What turns out as the default leaves nothing behind.
OSErr StoreFacts(const Place& place, const HeldObject& object, FSCatalogInfoBitmap whichInfo,
                 const FSCatalogInfo& info);

// The same for an object that this library has made and whose facts are `known`, as it has stored them itself;
// they become those that it stores now.
OSErr StoreKnownFacts(const Place& place, const HeldObject& object, FSCatalogInfoBitmap whichInfo,
                      const FSCatalogInfo& info, appledouble::Facts& known);
