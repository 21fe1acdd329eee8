// A library for test_library and test_system.
#include <stdlib.h>

int number = 7;
int* ended = 0; // which its end counts up
__thread int of_thread = 8;

int answer(void) {
    return atoi("42");
}

__attribute__((destructor)) static void end(void) {
    if (ended)
        ++*ended;
}
