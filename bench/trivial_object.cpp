// A shared object that loads what the library needs and does nothing.
extern "C" int TrivialObject();
int TrivialObject() {
    return 0;
}
