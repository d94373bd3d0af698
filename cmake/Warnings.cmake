# Every target of the tree is held to the same warnings, and a warning is an error.
add_library(tavport_warnings INTERFACE)
target_compile_options(tavport_warnings INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Werror)
