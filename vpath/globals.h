// What the process keeps for virtual paths from load to unload.
#pragma once

#include "vpath/named_values.h"
#include "vpath/reference_cache.h"
#include "vpath/translation_keys.h"

extern map_KeyPath g_map_KeyPath;
extern Key1ToKey2Lock<const TavChar*, OpacTavFSRef*> s_FSRefs;
extern map_KeyPathSeg g_map_KeyPathSeg;

// How often g_map_KeyPathSeg changed.
extern uint32_t g_FSRefValModAccount;
