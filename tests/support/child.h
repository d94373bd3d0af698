// Running part of a test where it can do no harm to the rest.
#pragma once

#include <functional>

// Runs `body` in a child process; true when it returns true there.
bool InChild(const std::function<bool()>& body);
