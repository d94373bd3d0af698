// Inside the provider: links, which are files of their own kind to the platform.
#pragma once

#include "platform/linux/references.h"

// Whether Finder information is that of a link.
bool IsLinkFinderInfo(const uint8_t (&finderInfo)[16]);

// The Finder information of every link.
void FillLinkFinderInfo(uint8_t* finderInfo);

// Puts a link with the text in the file's data fork in the file's place, with its dates and owner. -50 when
// the fork does not hold the text of a link, -47 while a fork is open.
OSErr TurnIntoLink(const Place& place);
