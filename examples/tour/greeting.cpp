// The module that the tour loads.
extern "C" {

__attribute__((visibility("default"))) const char* GreetingOfHour(int hour);

const char* GreetingOfHour(int hour) {
    if (hour < 12) return "Good morning!";
    return hour < 18 ? "Good afternoon!" : "Good evening!";
}

} // extern "C"
