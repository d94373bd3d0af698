extern "C" int NobodyHasThis();
extern "C" int ModuleAnswer() {
    return NobodyHasThis();
}
