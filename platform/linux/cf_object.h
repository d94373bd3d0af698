// What every object that CFRelease takes begins with.
#pragma once

struct CFObject;

// What the objects of one kind have in common.
struct CFKind {
    const char* name;
    // Gives back one ownership; the object goes with the last.
    void (*release)(CFObject*);
};

struct CFObject {
    const CFKind* kind;
};
