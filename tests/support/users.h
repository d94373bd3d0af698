// Running part of a test as someone without privileges.
#pragma once

#include <functional>

// Whether the test may become another user: it runs as the superuser.
bool CanBecomeAnotherUser();

// Runs `body` in a child process that has no privileges and owns nothing; true when it returns true there.
bool AsAnotherUser(const std::function<bool()>& body);
